#include "ui/common/QtDialogs.h"

#include "ui/common/Symbols.h"

#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include "ScreensTestSupport.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

// Comes first among the bases so that the application exists before any widget member.
struct WithApplication
{
    WithApplication() { ensureWidgetsApplication(); }
};

class QtDialogsTest : public WithApplication, public ::testing::Test
{
protected:
    QtDialogsTest() { m_dialogs.setUseNativePanels(false); }

    // Answers the next modal message box once the event loop shows it.
    void answerNextAlert(const std::function<void(QMessageBox &)> &answer)
    {
        QTimer::singleShot(0, &m_window, [answer] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            ASSERT_NE(box, nullptr);
            answer(*box);
        });
    }

    QWidget m_window;
    QtDialogs m_dialogs{&m_window};
};

TEST_F(QtDialogsTest, AlertShowsItsTextsAndReportsTheButtonPressed)
{
    AlertRequest request{u"Supprimer ?"_s,
                         u"Définitivement."_s,
                         AlertStyle::warning,
                         {u"Supprimer"_s, u"Annuler"_s},
                         std::nullopt};
    QString shownText, shownInformative;
    QMessageBox::Icon shownIcon = QMessageBox::NoIcon;
    answerNextAlert([&](QMessageBox &box) {
        shownText = box.text();
        shownInformative = box.informativeText();
        shownIcon = box.icon();
        buttonWithText(&box, u"Annuler"_s)->click();
    });
    EXPECT_EQ(m_dialogs.runAlert(request).button, 1);
    EXPECT_EQ(shownText, u"Supprimer ?"_s);
    EXPECT_EQ(shownInformative, u"Définitivement."_s);
    EXPECT_EQ(shownIcon, QMessageBox::Warning);

    answerNextAlert([](QMessageBox &box) { buttonWithText(&box, u"Supprimer"_s)->click(); });
    EXPECT_EQ(m_dialogs.runAlert(request).button, 0);

    answerNextAlert([](QMessageBox &box) { QTest::keyClick(&box, Qt::Key_Escape); });
    EXPECT_EQ(m_dialogs.runAlert(request).button, 1);
}

TEST_F(QtDialogsTest, AlertTextFieldStartsWithTheTextAndReturnsWhatWasTyped)
{
    AlertRequest request{u"Renommer la catégorie"_s,
                         u"Entrez le nouveau nom :"_s,
                         AlertStyle::informational,
                         {u"OK"_s, u"Annuler"_s},
                         u"Travail"_s};
    QString initial;
    QMessageBox::Icon shownIcon = QMessageBox::NoIcon;
    answerNextAlert([&](QMessageBox &box) {
        shownIcon = box.icon();
        auto *field = box.findChild<QLineEdit *>(u"alertTextField"_s);
        ASSERT_NE(field, nullptr);
        initial = field->text();
        field->clear();
        QTest::keyClicks(field, u"Boulot"_s);
        buttonWithText(&box, u"OK"_s)->click();
    });
    const AlertAnswer answer = m_dialogs.runAlert(request);
    EXPECT_EQ(initial, u"Travail"_s);
    EXPECT_EQ(shownIcon, QMessageBox::Information);
    EXPECT_EQ(answer.button, 0);
    EXPECT_EQ(answer.text, u"Boulot"_s);
}

TEST_F(QtDialogsTest, OpenPanelAnswersThroughItsCallback)
{
    QTemporaryDir dir;
    const QString file = dir.filePath(u"a.fivabackup"_s);
    writeBytes(file, "x");
    std::vector<std::optional<QStringList>> answers;
    OpenPanelRequest request{OpenPanelRequest::Kind::files, {u"fivabackup"_s}, false, u"Choisir"_s};
    m_dialogs.showOpenPanel(request, [&](std::optional<QStringList> chosen) { answers.push_back(chosen); });
    auto *panel = m_window.findChild<QFileDialog *>(u"openPanel"_s);
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(panel->fileMode(), QFileDialog::ExistingFile);
    EXPECT_EQ(panel->nameFilters(), QStringList{u"*.fivabackup"_s});
    EXPECT_EQ(panel->labelText(QFileDialog::Accept), u"Choisir");
    panel->setDirectory(dir.path());
    panel->selectFile(file);
    static_cast<QDialog *>(panel)->accept();
    ASSERT_EQ(answers.size(), 1u);
    ASSERT_TRUE(answers[0]);
    EXPECT_EQ(*answers[0], QStringList{file});

    m_dialogs.showOpenPanel({OpenPanelRequest::Kind::folders, {}, false, {}},
                            [&](std::optional<QStringList> chosen) { answers.push_back(chosen); });
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    panel = m_window.findChild<QFileDialog *>(u"openPanel"_s);
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(panel->fileMode(), QFileDialog::Directory);
    panel->reject();
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_FALSE(answers[1]);
}

TEST_F(QtDialogsTest, SavePanelProposesTheNameAndAddsTheExtension)
{
    QTemporaryDir dir;
    std::vector<std::optional<QString>> answers;
    m_dialogs.showSavePanel({u"Fiva-Backup.fivabackup"_s, {u"fivabackup"_s}},
                            [&](std::optional<QString> chosen) { answers.push_back(chosen); });
    auto *panel = m_window.findChild<QFileDialog *>(u"savePanel"_s);
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(panel->acceptMode(), QFileDialog::AcceptSave);
    EXPECT_EQ(panel->defaultSuffix(), u"fivabackup"_s);
    panel->setDirectory(dir.path());
    panel->selectFile(dir.filePath(u"copie"_s));
    static_cast<QDialog *>(panel)->accept();
    ASSERT_EQ(answers.size(), 1u);
    ASSERT_TRUE(answers[0]);
    EXPECT_EQ(*answers[0], dir.filePath(u"copie.fivabackup"_s));
}

struct FilterCase
{
    QStringList extensions;
    QStringList filters;
};

class NameFilterTest : public ::testing::TestWithParam<FilterCase>
{
};

TEST_P(NameFilterTest, ExtensionsBecomeOnePattern)
{
    EXPECT_EQ(QtDialogs::nameFilters(GetParam().extensions), GetParam().filters);
}

INSTANTIATE_TEST_SUITE_P(Extensions, NameFilterTest,
                         ::testing::Values(FilterCase{{}, {}}, FilterCase{{u""_s}, {}},
                                           FilterCase{{u"fivabackup"_s}, {u"*.fivabackup"_s}},
                                           FilterCase{{u"png"_s, u"jpg"_s}, {u"*.png *.jpg"_s}}));

TEST(SymbolsTest, EveryOwnDrawingRendersSomething)
{
    ensureWidgetsApplication();
    const QStringList names = symbols::knownSymbols();
    for (const QString &symbol :
         {u"star"_s, u"star.fill"_s, u"pencil"_s, u"trash"_s, u"paperclip"_s, u"plus"_s, u"folder"_s,
          u"square.and.arrow.up"_s, u"square.and.arrow.down"_s, u"clock.arrow.circlepath"_s,
          u"xmark.circle.fill"_s})
        EXPECT_TRUE(names.contains(symbol)) << symbol.toStdString();
    for (const QString &name : names) {
        const QImage image = symbols::ownIcon(name).pixmap(24, 24).toImage();
        ASSERT_FALSE(image.isNull()) << name.toStdString();
        bool drawn = false;
        for (int y = 0; y < image.height() && !drawn; ++y) {
            for (int x = 0; x < image.width() && !drawn; ++x)
                drawn = qAlpha(image.pixel(x, y)) > 0;
        }
        EXPECT_TRUE(drawn) << name.toStdString();
        EXPECT_FALSE(symbols::icon(name).isNull()) << name.toStdString();
    }
    EXPECT_TRUE(symbols::ownIcon(u"no.such.symbol"_s).isNull());
}

TEST(SymbolsTest, StarsStayOursAndYellow)
{
    ensureWidgetsApplication();
    EXPECT_TRUE(symbols::themeIconName(u"star.fill"_s).isEmpty());
    const QImage image = symbols::icon(u"star.fill"_s).pixmap(32, 32).toImage();
    const QColor centre = image.pixelColor(16, 16);
    EXPECT_GT(centre.red(), 200);
    EXPECT_GT(centre.green(), 150);
    EXPECT_LT(centre.blue(), 80);
}

} // namespace
