#pragma once

#include "model/JsonCodec.h"
#include "model/LinkItem.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "platform/Workspace.h"
#include "store/LinkStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <QTemporaryDir>
#include <QUuid>

#include <unistd.h>

#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <vector>

namespace fiva {

// GoogleTest prints these instead of raw bytes.
inline void PrintTo(const QString &s, std::ostream *os)
{
    *os << '"' << s.toStdString() << '"';
}
inline void PrintTo(const QStringList &l, std::ostream *os)
{
    *os << '[' << l.join(QStringLiteral(", ")).toStdString() << ']';
}

namespace test {

// Timers and queued calls need an application object; one per test program.
inline void ensureApplication()
{
    if (QCoreApplication::instance())
        return;
    static int argc = 1;
    static char name[] = "store_tests";
    static char *argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
}

// Redirects file descriptor 1 so that what the store prints can be compared line by line.
class StdoutCapture final
{
public:
    StdoutCapture()
    {
        std::fflush(stdout);
        m_file = std::tmpfile();
        m_saved = ::dup(STDOUT_FILENO);
        ::dup2(::fileno(m_file), STDOUT_FILENO);
    }
    ~StdoutCapture() { finish(); }
    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;

    QString finish()
    {
        if (!m_file)
            return m_text;
        std::fflush(stdout);
        ::dup2(m_saved, STDOUT_FILENO);
        ::close(m_saved);
        std::rewind(m_file);
        QByteArray bytes;
        char buffer[4096];
        size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, m_file)) > 0)
            bytes.append(buffer, static_cast<qsizetype>(n));
        std::fclose(m_file);
        m_file = nullptr;
        m_text = QString::fromUtf8(bytes);
        return m_text;
    }

private:
    std::FILE *m_file = nullptr;
    int m_saved = -1;
    QString m_text;
};

// Records what the store asked of the desktop.
class RecordingWorkspace final : public Workspace
{
public:
    bool openUrl(const QUrl &url) override
    {
        calls.push_back(QStringLiteral("openUrl ") + url.toString());
        return true;
    }
    bool openPath(const QString &path) override
    {
        calls.push_back(QStringLiteral("openPath ") + path);
        return true;
    }
    bool showFolder(const QString &folder) override
    {
        calls.push_back(QStringLiteral("showFolder ") + folder);
        return true;
    }
    bool revealItem(const QString &path) override
    {
        calls.push_back(QStringLiteral("revealItem ") + path);
        return true;
    }
    std::vector<QString> calls;
};

inline QByteArray readBytes(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return f.readAll();
}

inline void writeBytes(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(bytes) != bytes.size())
        qFatal("test fixture: cannot write %s", qPrintable(path));
}

inline LinkItem makeItem(const QString &title, const QString &category, QList<Attachment> attachments = {})
{
    LinkItem item;
    item.id = QUuid::createUuid();
    item.title = title;
    item.path = QStringLiteral("https://example.org/") + title;
    item.category = category;
    item.createdAt = Timestamp{700000000.0};
    item.attachments = std::move(attachments);
    return item;
}

// 2025-01-01 00:00:00 UTC.
inline constexpr Timestamp newYear2025{757382400.0};

// Each test gets its own application-support folder and a clock that only moves when told.
class StoreTest : public ::testing::Test
{
protected:
    StoreTest() { ensureApplication(); }

    std::unique_ptr<LinkStore> start(TimerPeriod period = realTimerPeriod)
    {
        StdoutCapture capture;
        auto store = std::make_unique<LinkStore>(m_paths, m_workspace, m_clock, std::move(period));
        m_startOutput = capture.finish();
        return store;
    }

    // Starts a store from a data file holding these records and categories.
    std::unique_ptr<LinkStore> startWith(const QList<LinkItem> &items, const QStringList &categories)
    {
        writeBytes(dataFile(), json::encode(SavedData{items, categories, std::nullopt}).value());
        return start();
    }

    QString as(const QString &relative = {}) const
    {
        return relative.isEmpty() ? m_as.path() : m_as.filePath(relative);
    }
    QString dataFile() const { return as(QStringLiteral("Fiva/FivaData.json")); }
    QString historyFile() const { return as(QStringLiteral("Fiva/BackupHistory.json")); }
    QString autoBackups() const { return as(QStringLiteral("Fiva/AutoBackups")); }

    QTemporaryDir m_as;
    FixedPaths m_paths{m_as.path(), m_as.path()};
    RecordingWorkspace m_workspace;
    ManualClock m_clock{newYear2025};
    QString m_startOutput;
};

} // namespace test
} // namespace fiva
