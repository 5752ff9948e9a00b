#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QTcpServer>
#include <QTcpSocket>

// Shared by the web check's tests and fiva-cli's: the only server any test talks to.
namespace fiva::test {

using namespace Qt::StringLiterals;

struct Canned
{
    int status = 0; // 0: never answer
    QByteArray location = {};
    int headStatus = 0; // when HEAD gets another answer than GET
};

// Answers each path with a canned response on 127.0.0.1 and notes what it was asked.
class CannedServer final : public QObject
{
public:
    explicit CannedServer(QHash<QByteArray, Canned> responses) : m_responses(std::move(responses))
    {
        QObject::connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = m_server.nextPendingConnection()) {
                socket->setParent(this);
                QObject::connect(socket, &QTcpSocket::readyRead, this, [this, socket] { serve(socket); });
            }
        });
        m_server.listen(QHostAddress::LocalHost);
    }
    QString url(const QString &path) const
    {
        return u"http://127.0.0.1:%1%2"_s.arg(m_server.serverPort()).arg(path);
    }
    QList<QByteArray> requests;

private:
    void serve(QTcpSocket *socket)
    {
        QByteArray &buffer = m_buffers[socket];
        buffer += socket->readAll();
        if (buffer.startsWith('\x16')) { // a TLS hello: answer in plain text, as a misconfigured server would
            socket->write("HTTP/1.1 400 Pas de TLS ici\r\nConnection: close\r\n\r\n");
            return socket->disconnectFromHost();
        }
        if (!buffer.contains("\r\n\r\n"))
            return;
        const QList<QByteArray> line = buffer.left(buffer.indexOf("\r\n")).split(' ');
        buffer.clear();
        if (line.size() < 2)
            return socket->disconnectFromHost();
        requests.append(line[0] + ' ' + line[1]);
        const Canned canned = m_responses.value(line[1], Canned{404});
        const int status = line[0] == "HEAD" && canned.headStatus ? canned.headStatus : canned.status;
        if (status == 0)
            return;
        const QByteArray body = line[0] == "HEAD" ? QByteArray() : QByteArray("corps");
        QByteArray response = "HTTP/1.1 " + QByteArray::number(status) + " Canned\r\nConnection: close\r\n" +
                              "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
        if (!canned.location.isEmpty())
            response += "Location: " + canned.location + "\r\n";
        socket->write(response + "\r\n" + body);
        socket->disconnectFromHost();
    }

    QTcpServer m_server;
    QHash<QByteArray, Canned> m_responses;
    QHash<QTcpSocket *, QByteArray> m_buffers;
};

} // namespace fiva::test
