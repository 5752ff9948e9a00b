#include "store/Console.h"

#include <QByteArray>
#include <QString>

#include <cstdio>

namespace fiva::console {

namespace {

void writeLine(const QString &line)
{
    const QByteArray bytes = line.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}

} // namespace

void print(QStringView message, QStringView description)
{
    writeLine(message.toString() + u' ' + description.toString() + u'\n');
}

void print(QStringView message)
{
    writeLine(message.toString() + u'\n');
}

} // namespace fiva::console
