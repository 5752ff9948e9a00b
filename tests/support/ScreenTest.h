#pragma once

#include "model/JsonCodec.h"
#include "model/SavedData.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "platform/Settings.h"
#include "store/LinkStore.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPainter>
#include <QPdfWriter>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>
#include <memory>

#include "support/FakeDialogs.h"
#include "support/TestCommon.h"

namespace fiva {
namespace test {

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

// Those of `texts` that no visible label or button of `parent` shows.
inline QStringList notShown(QWidget *parent, const QStringList &texts)
{
    QStringList missing;
    for (const QString &text : texts) {
        QAbstractButton *button = buttonWithText(parent, text);
        if (!showsLabel(parent, text) && !(button && button->isVisibleTo(parent)))
            missing << text;
    }
    return missing;
}

// A one-page PDF whose only text is `text`, so a test can tell which file a window loaded.
inline void writePdf(const QString &path, const QString &text)
{
    QPdfWriter writer(path);
    QPainter painter(&writer);
    painter.drawText(QPointF(100, 100), text);
}

inline QStringList choices(const QComboBox *picker)
{
    QStringList texts;
    for (int i = 0; i < picker->count(); ++i)
        texts << picker->itemText(i);
    return texts;
}

// A mouse click in the middle of a row, as a user selects it.
inline void clickRow(QAbstractItemView *view, int row)
{
    const QModelIndex index = view->model()->index(row, 0);
    ASSERT_TRUE(index.isValid()) << "no row " << row;
    view->scrollTo(index);
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->visualRect(index).center());
}

// A left click in the middle of `widget`; a widget not found fails the test instead of crashing it.
inline void click(QWidget *widget)
{
    ASSERT_NE(widget, nullptr) << "nothing to click";
    QTest::mouseClick(widget, Qt::LeftButton);
}

// Hides and shows `window` again, as a user bringing it back does, and lets it settle.
inline void showAgain(QWidget *window)
{
    window->hide();
    window->show();
    QCoreApplication::processEvents();
}

// Widgets closed or replaced go with deleteLater; tests look once they are really gone.
inline void flushDeletions()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

template <typename T> QList<T *> visibleWindows()
{
    QList<T *> windows;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *window = qobject_cast<T *>(widget); window && window->isVisible())
            windows.append(window);
    }
    return windows;
}

// Every alert asked so far, as "message|informative text|warning or info|buttons[|text field]".
inline QStringList alertTexts(const FakeDialogs &dialogs)
{
    QStringList texts;
    for (const AlertRequest &alert : dialogs.alerts) {
        QStringList parts{alert.message, alert.informativeText,
                          alert.style == AlertStyle::warning ? u"warning"_s : u"info"_s,
                          alert.buttons.join(u',')};
        if (alert.textField)
            parts << *alert.textField;
        texts << parts.join(u'|');
    }
    return texts;
}

// A real store over a temporary application-support folder, the scripted dialogs, a fixed clock and
// settings of their own.
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
    QString settingsFile() const { return m_as.filePath(QStringLiteral("Fiva.ini")); }

    QTemporaryDir m_as;
    FixedPaths m_paths{m_as.path(), m_as.path()};
    RecordingWorkspace m_workspace;
    ManualClock m_clock{newYear2025};
    FakeDialogs m_dialogs;
    Settings m_settings{settingsFile()};
};

} // namespace test
} // namespace fiva
