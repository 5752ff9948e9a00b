#include "health/WebCheck.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <algorithm>
#include <utility>

namespace fiva {

QString WebCheckResult::description() const
{
    switch (outcome) {
    case WebOutcome::reachable:
        return wasRedirected()
                   ? QStringLiteral("La page répond, à l’adresse « ") + finalAddress + QStringLiteral(" ».")
                   : QStringLiteral("La page répond.");
    case WebOutcome::notFound:
        return QStringLiteral("La page n’existe pas ou plus (erreur 404).");
    case WebOutcome::gone:
        return QStringLiteral("La page a été supprimée (erreur 410).");
    case WebOutcome::httpError:
        return QStringLiteral("Le serveur a répondu par l’erreur %1.").arg(httpStatus);
    case WebOutcome::hostNotFound:
        return QStringLiteral("Le nom du serveur « ") + QUrl(address).host() +
               QStringLiteral(" » est introuvable.");
    case WebOutcome::timedOut:
        return QStringLiteral("Le serveur n’a pas répondu à temps.");
    case WebOutcome::tlsError:
        return QStringLiteral("La connexion sécurisée au serveur a échoué : ") + errorText;
    case WebOutcome::connectionError:
        return QStringLiteral("La connexion au serveur a échoué : ") + errorText;
    case WebOutcome::cancelled:
        return QStringLiteral("La vérification a été interrompue.");
    }
    return {};
}

namespace {

// Servers that do not implement HEAD, or forbid it, say so in one of these; GET then decides.
bool refusesHead(int status)
{
    return status == 400 || status == 403 || status == 405 || status == 501;
}

// Read raw: the parsed header gives nothing for a relative address, which servers commonly send.
QUrl locationOf(const QNetworkReply *reply)
{
    return QUrl::fromEncoded(reply->rawHeader("Location").trimmed());
}

} // namespace

WebChecker::WebChecker(WebCheckOptions options, QObject *parent)
    : QObject(parent), m_options(options), m_manager(new QNetworkAccessManager(this))
{
    m_options.maxParallel = std::max(1, m_options.maxParallel);
    m_options.timeoutMs = std::max(1, m_options.timeoutMs);
    m_options.maxRedirects = std::max(0, m_options.maxRedirects);
}

WebChecker::~WebChecker()
{
    for (qsizetype i = 0; i < qsizetype(m_jobs.size()); ++i)
        release(i);
}

void WebChecker::start(const QList<WebCheckRequest> &requests)
{
    if (m_running)
        return;
    m_jobs.assign(std::size_t(requests.size()), Job{});
    m_results.clear();
    const Timestamp now = Timestamp::now();
    for (const WebCheckRequest &request : requests)
        m_results.append({request.id, request.address, {}, WebOutcome::cancelled, 0, {}, now});
    m_next = 0;
    m_active = 0;
    m_done = 0;
    m_cancelled = false;
    m_running = true;
    Q_EMIT progressChanged(0, int(requests.size()));
    if (requests.isEmpty()) {
        m_running = false;
        Q_EMIT finished();
        return;
    }
    startMore();
}

void WebChecker::cancel()
{
    if (!m_running)
        return;
    m_cancelled = true;
    // What was never sent ends at once; what is under way ends through its reply's abort.
    while (m_next < m_results.size())
        finish(m_next++, WebOutcome::cancelled);
    for (qsizetype i = 0; i < qsizetype(m_jobs.size()); ++i)
        if (m_jobs[std::size_t(i)].reply)
            m_jobs[std::size_t(i)].reply->abort();
}

void WebChecker::startMore()
{
    while (!m_cancelled && m_active < m_options.maxParallel && m_next < m_results.size()) {
        const qsizetype index = m_next++;
        Job &job = m_jobs[std::size_t(index)];
        job.url = QUrl(m_results[index].address.trimmed(), QUrl::StrictMode);
        const QString scheme = job.url.scheme().toLower();
        if (!job.url.isValid() || job.url.host().isEmpty() || (scheme != u"http" && scheme != u"https")) {
            finish(index, WebOutcome::connectionError, 0, QStringLiteral("ce n’est pas une adresse web."));
            continue;
        }
        ++m_active;
        send(index);
    }
}

void WebChecker::send(qsizetype index)
{
    Job &job = m_jobs[std::size_t(index)];
    QNetworkRequest request(job.url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("Fiva"));
    job.timedOut = false;
    job.reply = job.head ? m_manager->head(request) : m_manager->get(request);
    if (!job.timer) {
        job.timer = new QTimer(this);
        job.timer->setSingleShot(true);
        connect(job.timer, &QTimer::timeout, this, [this, index] {
            Job &late = m_jobs[std::size_t(index)];
            late.timedOut = true;
            if (late.reply)
                late.reply->abort();
        });
    }
    job.timer->start(m_options.timeoutMs);
    connect(job.reply, &QNetworkReply::finished, this, [this, index] { onFinished(index); });
    if (!job.head)
        connect(job.reply, &QNetworkReply::metaDataChanged, this, [this, index] { onHeaders(index); });
}

void WebChecker::onHeaders(qsizetype index)
{
    // A GET is only asked for its status: the body is not worth downloading.
    QNetworkReply *reply = m_jobs[std::size_t(index)].reply;
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid() || status.toInt() < 200) // an interim answer; the real one follows
        return;
    const QUrl location = locationOf(reply);
    release(index);
    answer(index, status.toInt(), location);
}

void WebChecker::onFinished(qsizetype index)
{
    Job &job = m_jobs[std::size_t(index)];
    QNetworkReply *reply = job.reply;
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    const QUrl location = locationOf(reply);
    const QNetworkReply::NetworkError error = reply->error();
    const QString errorText = reply->errorString();
    const bool timedOut = job.timedOut;
    release(index);
    if (timedOut)
        return finish(index, WebOutcome::timedOut);
    if (m_cancelled)
        return finish(index, WebOutcome::cancelled);
    if (status.isValid() && status.toInt() > 0)
        return answer(index, status.toInt(), location);
    switch (error) {
    case QNetworkReply::HostNotFoundError:
        return finish(index, WebOutcome::hostNotFound, 0, errorText);
    case QNetworkReply::TimeoutError:
        return finish(index, WebOutcome::timedOut, 0, errorText);
    case QNetworkReply::SslHandshakeFailedError:
        return finish(index, WebOutcome::tlsError, 0, errorText);
    default:
        return finish(index, WebOutcome::connectionError, 0, errorText);
    }
}

void WebChecker::answer(qsizetype index, int status, const QUrl &location)
{
    Job &job = m_jobs[std::size_t(index)];
    if (m_cancelled)
        return finish(index, WebOutcome::cancelled);
    if (status >= 300 && status < 400 && location.isValid() && !location.isEmpty()) {
        if (job.redirects >= m_options.maxRedirects)
            return finish(index, WebOutcome::connectionError, status,
                          QStringLiteral("trop de redirections."));
        ++job.redirects;
        job.url = job.url.resolved(location);
        return send(index);
    }
    if (job.head && refusesHead(status)) {
        job.head = false;
        return send(index);
    }
    const WebOutcome outcome = status < 400    ? WebOutcome::reachable
                               : status == 404 ? WebOutcome::notFound
                               : status == 410 ? WebOutcome::gone
                                               : WebOutcome::httpError;
    finish(index, outcome, status);
}

void WebChecker::finish(qsizetype index, WebOutcome outcome, int status, const QString &errorText)
{
    Job &job = m_jobs[std::size_t(index)];
    WebCheckResult &result = m_results[index];
    result.outcome = outcome;
    result.httpStatus = status;
    result.errorText = errorText;
    result.finalAddress = job.redirects > 0 ? job.url.toString() : QString();
    result.checkedAt = Timestamp::now();
    // Only requests that were sent have a timer, and only they count as active.
    if (job.timer) {
        job.timer->deleteLater();
        job.timer = nullptr;
        --m_active;
    }
    ++m_done;
    Q_EMIT checked(result);
    Q_EMIT progressChanged(m_done, int(m_results.size()));
    if (m_done == m_results.size()) {
        m_running = false;
        Q_EMIT finished();
    } else {
        startMore();
    }
}

void WebChecker::release(qsizetype index)
{
    Job &job = m_jobs[std::size_t(index)];
    if (job.timer)
        job.timer->stop();
    if (QNetworkReply *reply = std::exchange(job.reply, nullptr)) {
        disconnect(reply, nullptr, this, nullptr);
        reply->abort();
        reply->deleteLater();
    }
}

QList<WebCheckResult> checkAddresses(const QList<WebCheckRequest> &requests, const WebCheckOptions &options,
                                     const std::function<void(int, int)> &progress, std::stop_token stop)
{
    WebChecker checker(options);
    QEventLoop loop;
    QObject::connect(&checker, &WebChecker::finished, &loop, &QEventLoop::quit);
    if (progress)
        QObject::connect(&checker, &WebChecker::progressChanged, &loop, progress);
    std::stop_callback onStop(
        stop, [&checker] { QMetaObject::invokeMethod(&checker, &WebChecker::cancel, Qt::QueuedConnection); });
    checker.start(requests);
    if (checker.isRunning())
        loop.exec();
    return checker.results();
}

} // namespace fiva
