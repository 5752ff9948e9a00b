#include "ui/common/QtDialogs.h"

#include "ui/common/Symbols.h"

#include <QDir>
#include <QFileDialog>
#include <QMessageBox>
#include <QTimer>

#include <functional>

#include "support/ScreenTest.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

class QtDialogsTest : public ScreenTest
{
protected:
    QtDialogsTest() { m_qt.setUseNativePanels(false); }

    // The panel just opened; the previous one, closed, is gone first.
    QFileDialog *panel(const QString &name)
    {
        flushDeletions();
        return child<QFileDialog>(&m_window, name);
    }

    QWidget m_window;
    QtDialogs m_qt{&m_window};
};

TEST_F(QtDialogsTest, AlertShowsTheRequestAndReportsTheButtonAndTheTypedText)
{
    const AlertRequest confirm{
        u"Supprimer ?"_s, u"Définitivement."_s, AlertStyle::warning, {u"Supprimer"_s, u"Annuler"_s}, {}};
    const AlertRequest rename{u"Renommer la catégorie"_s,
                              u"Entrez le nouveau nom :"_s,
                              AlertStyle::informational,
                              {u"OK"_s, u"Annuler"_s},
                              u"Travail"_s};
    const auto click = [](const QString &text) {
        return [text](QMessageBox &box) { buttonWithText(&box, text)->click(); };
    };
    const auto retype = [](QMessageBox &box) {
        auto *field = child<QLineEdit>(&box, u"alertTextField"_s);
        field->clear();
        QTest::keyClicks(field, u"Boulot"_s);
        buttonWithText(&box, u"OK"_s)->click();
    };
    // What the box showed (text, informative text, icon, the field's first text), then the answer.
    const std::tuple<const AlertRequest &, std::function<void(QMessageBox &)>, QString> cases[]{
        {confirm, click(u"Annuler"_s), u"Supprimer ?|Définitivement.|warning| → 1 "_s},
        {confirm, click(u"Supprimer"_s), u"Supprimer ?|Définitivement.|warning| → 0 "_s},
        {confirm, [](QMessageBox &box) { QTest::keyClick(&box, Qt::Key_Escape); },
         u"Supprimer ?|Définitivement.|warning| → 1 "_s},
        {rename, retype, u"Renommer la catégorie|Entrez le nouveau nom :|info|Travail → 0 Boulot"_s}};
    for (const auto &[request, answer, expected] : cases) {
        QString shown;
        // Answered once the event loop shows the modal box.
        QTimer::singleShot(0, &m_window, [&] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            ASSERT_NE(box, nullptr);
            auto *field = box->findChild<QLineEdit *>(u"alertTextField"_s);
            const QString icon = box->icon() == QMessageBox::Warning       ? u"warning"_s
                                 : box->icon() == QMessageBox::Information ? u"info"_s
                                                                           : u"?"_s;
            shown = QStringList{box->text(), box->informativeText(), icon, field ? field->text() : QString()}
                        .join(u'|');
            answer(*box);
        });
        const AlertAnswer given = m_qt.runAlert(request);
        EXPECT_EQ(QString(shown + u" → "_s + QString::number(given.button) + u' ' + given.text), expected);
    }
}

TEST_F(QtDialogsTest, PanelsAskForWhatTheRequestSaysAndAnswerThroughTheirCallback)
{
    QTemporaryDir dir;
    const QString file = dir.filePath(u"a.fivabackup"_s);
    writeBytes(file, "x");
    std::vector<std::optional<QStringList>> opened;
    const auto remember = [&](std::optional<QStringList> chosen) { opened.push_back(chosen); };
    m_qt.showOpenPanel({OpenPanelRequest::Kind::files, {u"fivabackup"_s}, false, u"Choisir"_s}, remember);
    QFileDialog *open = panel(u"openPanel"_s);
    EXPECT_EQ(open->fileMode(), QFileDialog::ExistingFile);
    EXPECT_EQ(open->nameFilters(), QStringList{u"*.fivabackup"_s});
    EXPECT_EQ(open->labelText(QFileDialog::Accept), u"Choisir");
    open->setDirectory(dir.path());
    open->selectFile(file);
    static_cast<QDialog *>(open)->accept();

    m_qt.showOpenPanel({OpenPanelRequest::Kind::folders, {}, false, {}}, remember);
    open = panel(u"openPanel"_s);
    EXPECT_EQ(open->fileMode(), QFileDialog::Directory);
    open->reject();
    EXPECT_EQ(opened, (std::vector<std::optional<QStringList>>{QStringList{file}, std::nullopt}));

    std::vector<std::optional<QString>> saved;
    m_qt.showSavePanel({u"Fiva-Backup.fivabackup"_s, {u"fivabackup"_s}},
                       [&](std::optional<QString> chosen) { saved.push_back(chosen); });
    QFileDialog *save = panel(u"savePanel"_s);
    EXPECT_EQ(save->acceptMode(), QFileDialog::AcceptSave);
    save->setDirectory(dir.path());
    save->selectFile(dir.filePath(u"copie"_s));
    static_cast<QDialog *>(save)->accept();
    // The extension is added to a name typed without one.
    EXPECT_EQ(saved, std::vector<std::optional<QString>>{dir.filePath(u"copie.fivabackup"_s)});
}

// Each kind of panel starts where the last one of its kind was confirmed, in this launch or an
// earlier one, else in the documents folder; never in the working folder.
TEST_F(QtDialogsTest, PanelsStartInTheFolderLastConfirmedForTheirKindElseInTheDocuments)
{
    QTemporaryDir home;
    const QString documents = home.filePath(u"Documents"_s), backups = home.filePath(u"Sauvegardes"_s),
                  elsewhere = home.filePath(u"Ailleurs"_s);
    for (const QString &folder : {documents, backups, elsewhere})
        QDir().mkpath(folder);
    writeBytes(backups + u"/a.fivabackup"_s, "x");
    const FixedPaths paths(m_as.path(), m_as.path(), documents);
    m_qt.setStartFolders(paths, m_settings);
    Settings nextLaunch(settingsFile());
    QtDialogs next(&m_window);
    next.setUseNativePanels(false);
    next.setStartFolders(paths, nextLaunch);

    // Opens a save or an open panel, confirms it on `choose` or cancels it when empty, and says
    // where it started.
    const auto run = [&](QtDialogs &dialogs, bool save, const QString &choose) {
        if (save)
            dialogs.showSavePanel({u"Sauvegarde-Fiva.fivabackup"_s, {u"fivabackup"_s}}, [](auto) {});
        else
            dialogs.showOpenPanel({}, [](auto) {});
        QFileDialog *shown = panel(save ? u"savePanel"_s : u"openPanel"_s);
        const QString start = shown->directory().absolutePath();
        if (choose.isEmpty()) {
            shown->reject();
        } else {
            shown->selectFile(choose);
            static_cast<QDialog *>(shown)->accept();
        }
        return start;
    };
    const std::tuple<QtDialogs &, bool, QString, QString> steps[]{
        {m_qt, false, backups + u"/a.fivabackup"_s, documents},
        {m_qt, true, elsewhere + u"/copie.fivabackup"_s, documents},
        {m_qt, false, {}, backups},
        {m_qt, true, {}, elsewhere},
        {next, false, {}, backups},
        {next, true, {}, elsewhere}};
    for (const auto &[dialogs, save, choose, startsIn] : steps)
        EXPECT_EQ(run(dialogs, save, choose), startsIn) << save << choose.toStdString();

    // A remembered folder that has gone since is not offered.
    QDir(elsewhere).removeRecursively();
    EXPECT_EQ(run(next, true, {}), documents);
}

TEST(QtDialogs, ExtensionsBecomeOnePattern)
{
    const std::vector<std::pair<QStringList, QStringList>> cases{{{}, {}},
                                                                 {{u""_s}, {}},
                                                                 {{u"fivabackup"_s}, {u"*.fivabackup"_s}},
                                                                 {{u"png"_s, u"jpg"_s}, {u"*.png *.jpg"_s}}};
    for (const auto &[extensions, filters] : cases)
        EXPECT_EQ(QtDialogs::nameFilters(extensions), filters) << extensions.join(u',').toStdString();
}

TEST_F(QtDialogsTest, EveryOwnDrawingRendersSomethingAndStarsStayOursAndYellow)
{
    const QStringList names = symbols::knownSymbols();
    for (const QString &symbol :
         {u"star"_s, u"star.fill"_s, u"pencil"_s, u"trash"_s, u"paperclip"_s, u"plus"_s, u"folder"_s,
          u"square.and.arrow.up"_s, u"square.and.arrow.down"_s, u"clock.arrow.circlepath"_s,
          u"xmark.circle.fill"_s})
        EXPECT_TRUE(names.contains(symbol)) << symbol.toStdString();
    for (const QString &name : names) {
        const QImage image = symbols::ownIcon(name).pixmap(24, 24).toImage();
        QImage blank(image.size(), image.format());
        blank.fill(Qt::transparent);
        EXPECT_TRUE(!image.isNull() && image != blank) << name.toStdString();
        EXPECT_FALSE(symbols::icon(name).isNull()) << name.toStdString();
    }
    EXPECT_TRUE(symbols::ownIcon(u"no.such.symbol"_s).isNull());

    EXPECT_TRUE(symbols::themeIconName(u"star.fill"_s).isEmpty());
    const QColor centre = symbols::icon(u"star.fill"_s).pixmap(32, 32).toImage().pixelColor(16, 16);
    EXPECT_TRUE(centre.red() > 200 && centre.green() > 150 && centre.blue() < 80)
        << centre.name().toStdString();
}

} // namespace
