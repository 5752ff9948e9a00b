#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <functional>
#include <stop_token>
#include <vector>

#include "health/WebCheckResult.h"

class QNetworkAccessManager;
class QNetworkReply;
class QTimer;

namespace fiva {

struct WebCheckOptions
{
    int timeoutMs = 15000; // per request, redirects and the GET retry each get their own
    int maxParallel = 4;   // a few at a time, to stay polite with servers and with the user's line
    int maxRedirects = 10;
};

struct WebCheckRequest
{
    QUuid id;
    QString address;
};

// Checks web addresses: HEAD first, GET when the server refuses HEAD, redirects followed one by
// one so that the final address is known. Only the answer's head is read. Lives on a thread with
// an event loop; start() once, then wait for finished().
class WebChecker final : public QObject
{
    Q_OBJECT
public:
    explicit WebChecker(WebCheckOptions options = {}, QObject *parent = nullptr);
    ~WebChecker() override;

    void start(const QList<WebCheckRequest> &requests);
    // Stops the requests under way; those not yet answered end as `cancelled`.
    void cancel();
    bool isRunning() const { return m_running; }
    // One result per request, in the order of the requests.
    const QList<WebCheckResult> &results() const { return m_results; }

Q_SIGNALS:
    void checked(const fiva::WebCheckResult &result);
    void progressChanged(int done, int total);
    void finished();

private:
    struct Job
    {
        QUrl url;
        bool head = true;
        int redirects = 0;
        bool timedOut = false;
        QNetworkReply *reply = nullptr;
        QTimer *timer = nullptr;
    };

    void startMore();
    void send(qsizetype index);
    void onHeaders(qsizetype index);
    void onFinished(qsizetype index);
    void answer(qsizetype index, int status, const QUrl &location);
    void finish(qsizetype index, WebOutcome outcome, int status = 0, const QString &errorText = {});
    void release(qsizetype index);

    WebCheckOptions m_options;
    QNetworkAccessManager *m_manager;
    std::vector<Job> m_jobs;
    QList<WebCheckResult> m_results;
    qsizetype m_next = 0;
    int m_active = 0;
    int m_done = 0;
    bool m_running = false;
    bool m_cancelled = false;
};

// Runs a whole check on the calling thread, in an event loop of its own: for the command line and
// for callers that are already on a worker thread. `stop` may be requested from any thread.
QList<WebCheckResult> checkAddresses(const QList<WebCheckRequest> &requests,
                                     const WebCheckOptions &options = {},
                                     const std::function<void(int done, int total)> &progress = {},
                                     std::stop_token stop = {});

} // namespace fiva
