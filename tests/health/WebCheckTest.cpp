#include "health/WebCheck.h"

#include <QCoreApplication>
#include <QHash>
#include <QNetworkProxy>

#include <gtest/gtest.h>

#include "CannedServer.h"
#include "HealthTestSupport.h"

namespace fiva {
namespace {

using namespace Qt::StringLiterals;
using test::Canned;
using test::CannedServer;

class WebCheck : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        if (!QCoreApplication::instance()) { // event loops need one
            static int argc = 1;
            static char name[] = "health_tests";
            static char *argv[] = {name, nullptr};
            static QCoreApplication app(argc, argv);
        }
        // Never through a proxy from the environment: only 127.0.0.1 may be contacted.
        QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
    }

    CannedServer m_server{{
        {"/ok", {200}},
        {"/r1", {301, "/r2"}},
        {"/r2", {302, "/ok"}},
        {"/gone", {410}},
        {"/error", {503}},
        {"/nohead", {200, {}, 405}},
        {"/nohead-missing", {404, {}, 501}},
        {"/loop", {302, "/loop"}},
        {"/silent", {0}},
    }};
};

TEST_F(WebCheck, ReportsWhatEachAddressAnswers)
{
    QTcpServer closed; // a port on which nothing listens any more
    ASSERT_TRUE(closed.listen(QHostAddress::LocalHost));
    const quint16 closedPort = closed.serverPort();
    closed.close();

    struct Case
    {
        QString address;
        WebOutcome outcome;
        int status;
        QString finalPath; // where the redirects ended; empty when none was followed
    };
    const Case cases[] = {
        {m_server.url(u"/ok"_s), WebOutcome::reachable, 200, {}},
        {m_server.url(u"/r1"_s), WebOutcome::reachable, 200, u"/ok"_s},
        {m_server.url(u"/absent"_s), WebOutcome::notFound, 404, {}},
        {m_server.url(u"/gone"_s), WebOutcome::gone, 410, {}},
        {m_server.url(u"/error"_s), WebOutcome::httpError, 503, {}},
        {m_server.url(u"/nohead"_s), WebOutcome::reachable, 200, {}},
        {m_server.url(u"/nohead-missing"_s), WebOutcome::notFound, 404, {}},
        {m_server.url(u"/loop"_s), WebOutcome::connectionError, 302, u"/loop"_s},
        {m_server.url(u"/silent"_s), WebOutcome::timedOut, 0, {}},
        {m_server.url(u"/ok"_s).replace(u"http:"_s, u"https:"_s), WebOutcome::tlsError, 0, {}},
        {u"http://127.0.0.1:%1/"_s.arg(closedPort), WebOutcome::connectionError, 0, {}},
        {u"http://fiva-essai.invalid/"_s, WebOutcome::hostNotFound, 0, {}},
        {u"pas une adresse"_s, WebOutcome::connectionError, 0, {}},
        {u"ftp://127.0.0.1/"_s, WebOutcome::connectionError, 0, {}},
    };
    QList<WebCheckRequest> requests;
    for (const Case &c : cases)
        requests.append({QUuid::createUuid(), c.address});

    WebCheckOptions options;
    options.timeoutMs = 400; // only the silent server waits for it
    options.maxParallel = 3;
    options.maxRedirects = 4;
    int lastDone = -1;
    const QList<WebCheckResult> results = checkAddresses(requests, options, [&](int done, int total) {
        EXPECT_EQ(done, lastDone + 1);
        EXPECT_EQ(total, requests.size());
        lastDone = done;
    });
    EXPECT_EQ(lastDone, requests.size());
    ASSERT_EQ(results.size(), requests.size());
    for (qsizetype i = 0; i < results.size(); ++i) {
        const Case &c = cases[i];
        SCOPED_TRACE(c.address.toStdString());
        EXPECT_EQ(results[i].id, requests[i].id);
        EXPECT_EQ(results[i].address, c.address);
        EXPECT_EQ(results[i].outcome, c.outcome) << results[i].errorText.toStdString();
        EXPECT_EQ(results[i].httpStatus, c.status);
        EXPECT_EQ(results[i].finalAddress, c.finalPath.isEmpty() ? QString() : m_server.url(c.finalPath));
        EXPECT_EQ(results[i].isBroken(), c.outcome != WebOutcome::reachable);
        EXPECT_FALSE(results[i].description().isEmpty());
    }
    // HEAD first; GET only where HEAD was refused.
    EXPECT_EQ(m_server.requests.count("GET /nohead"), 1);
    EXPECT_EQ(m_server.requests.count("HEAD /nohead"), 1);
    EXPECT_EQ(m_server.requests.count("GET /ok"), 0);
    EXPECT_EQ(m_server.requests.count("HEAD /loop"), 5);
}

TEST_F(WebCheck, CancelEndsEveryRequestAsCancelled)
{
    WebCheckOptions options;
    options.timeoutMs = 600000;
    options.maxParallel = 2;
    WebChecker checker(options);
    QList<WebCheckRequest> requests;
    for (int i = 0; i < 5; ++i)
        requests.append({QUuid::createUuid(), m_server.url(u"/silent"_s)});
    requests.append({QUuid::createUuid(), u"pas une adresse"_s});

    bool finished = false;
    QObject::connect(&checker, &WebChecker::finished, &checker, [&] { finished = true; });
    checker.start(requests);
    ASSERT_TRUE(checker.isRunning());
    // Cancel once the server holds both requests under way.
    while (m_server.requests.size() < 2)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    EXPECT_EQ(m_server.requests.size(), 2);
    checker.cancel();
    QCoreApplication::processEvents();
    EXPECT_TRUE(finished);
    EXPECT_FALSE(checker.isRunning());
    for (const WebCheckResult &result : checker.results()) {
        EXPECT_EQ(result.outcome, WebOutcome::cancelled);
        EXPECT_FALSE(result.isBroken());
    }
    std::stop_source stop;
    stop.request_stop();
    const QList<WebCheckResult> stopped = checkAddresses(requests, options, {}, stop.get_token());
    ASSERT_EQ(stopped.size(), requests.size());
    EXPECT_EQ(stopped.first().outcome, WebOutcome::cancelled);
    EXPECT_TRUE(checkAddresses({}, options).isEmpty()); // must not wait for an answer that cannot come
}

} // namespace
} // namespace fiva
