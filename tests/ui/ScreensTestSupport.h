#pragma once

#include "model/JsonCodec.h"
#include "model/LinkItem.h"
#include "model/SavedData.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "platform/Settings.h"
#include "platform/Workspace.h"
#include "store/LinkStore.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QListWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>
#include <QWidget>

#include <unistd.h>

#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <vector>

#include "support/FakeDialogs.h"

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

// Redirects file descriptor 1 so that what the screens print can be compared line by line.
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

// Records what the screens asked of the desktop, one line per call.
class RecordingWorkspace final : public Workspace
{
public:
    bool openUrl(const QUrl &url) override { return record(QStringLiteral("openUrl ") + url.toString()); }
    bool openPath(const QString &path) override { return record(QStringLiteral("openPath ") + path); }
    bool showFolder(const QString &folder) override { return record(QStringLiteral("showFolder ") + folder); }
    bool revealItem(const QString &path) override { return record(QStringLiteral("revealItem ") + path); }
    std::vector<QString> calls;

private:
    bool record(const QString &call)
    {
        calls.push_back(call);
        return true;
    }
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

// Widgets need a QApplication rather than the store tests' QCoreApplication; one per program. It is
// never destroyed: a static one would be torn down after Qt's own statics at exit, and crash there.
inline void ensureWidgetsApplication()
{
    if (QApplication::instance())
        return;
    static int argc = 1;
    static char name[] = "ui_screens_tests";
    static char *argv[] = {name, nullptr};
    new QApplication(argc, argv);
}

template <typename T> T *child(QWidget *parent, const QString &objectName)
{
    T *found = parent->findChild<T *>(objectName);
    if (!found)
        ADD_FAILURE() << "no child named " << objectName.toStdString();
    return found;
}

// The button whose text is exactly `text`, or null.
inline QAbstractButton *buttonWithText(QWidget *parent, const QString &text)
{
    const auto buttons = parent->findChildren<QAbstractButton *>();
    for (QAbstractButton *button : buttons) {
        if (button->text() == text)
            return button;
    }
    return nullptr;
}

// Whether a label with exactly this text is shown (its own visibility, the parent window need not be up).
inline bool showsLabel(QWidget *parent, const QString &text)
{
    const auto labels = parent->findChildren<QLabel *>();
    for (QLabel *label : labels) {
        if (label->text() == text && label->isVisibleTo(parent))
            return true;
    }
    return false;
}

inline void clickListRow(QListWidget *list, int row)
{
    QListWidgetItem *item = list->item(row);
    ASSERT_NE(item, nullptr);
    list->scrollToItem(item);
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(item).center());
}

// A real store over a temporary application-support folder, the scripted dialogs and a fixed clock.
class ScreenTest : public ::testing::Test
{
protected:
    ScreenTest() { ensureWidgetsApplication(); }

    std::unique_ptr<LinkStore> startWith(const QList<LinkItem> &items, const QStringList &categories)
    {
        writeBytes(dataFile(), json::encode(SavedData{items, categories, std::nullopt}).value());
        return start();
    }
    std::unique_ptr<LinkStore> start()
    {
        StdoutCapture quiet;
        return std::make_unique<LinkStore>(m_paths, m_workspace, m_clock);
    }
    // What a fresh start would read back from disk.
    SavedData onDisk() const
    {
        auto decoded = json::decodeSavedData(readBytes(dataFile()));
        EXPECT_TRUE(decoded.ok());
        return decoded.ok() ? decoded.value() : SavedData{};
    }

    QString dataFile() const { return m_as.filePath(QStringLiteral("Fiva/FivaData.json")); }

    QTemporaryDir m_as;
    FixedPaths m_paths{m_as.path(), m_as.path()};
    RecordingWorkspace m_workspace;
    ManualClock m_clock{newYear2025};
    FakeDialogs m_dialogs;
};

} // namespace test
} // namespace fiva
