#include "ui/main/ContentView.h"

#include "ui/editing/EditLinkView.h"
#include "ui/main/DetailView.h"
#include "ui/main/FailureBanner.h"
#include "ui/main/HealthMonitor.h"
#include "ui/main/LinkListModel.h"
#include "ui/main/PrefixRelocation.h"
#include "ui/main/RelocationSearch.h"
#include "ui/main/WebCheckRun.h"

#include <QAbstractItemModelTester>
#include <QDateEdit>
#include <QDateTime>
#include <QDialog>
#include <QDir>
#include <QNetworkProxy>
#include <QPushButton>
#include <QToolBar>
#include <QToolButton>

#include <functional>

#include "health/CannedServer.h"
#include "support/ScreenTest.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

LinkItem record(const QString &title, const QString &category, double createdAt, bool favorite = false)
{
    return makeItem({title, u"https://example.org/"_s + title, std::nullopt, category, createdAt, favorite});
}

// Three records, newest first: "Facture" is from the day before the clock's now, within the initial
// date range; the two others are older.
QList<LinkItem> threeRecords()
{
    return {record(u"Été en Provence"_s, u"Loisirs"_s, 700000000),
            record(u"Projet Qt"_s, u"Travail"_s, 710000000, true),
            record(u"Facture"_s, u"Administratif"_s, newYear2025.seconds - 86400)};
}

// Moves the picker with the keyboard, as a user does, so that it reports the choice as the user's.
void choose(QComboBox *picker, const QString &text)
{
    const int target = picker->findText(text, Qt::MatchExactly | Qt::MatchCaseSensitive);
    ASSERT_GE(target, 0) << text.toStdString();
    for (int guard = 0; picker->currentIndex() != target && guard < picker->count() + 1; ++guard)
        QTest::keyClick(picker, picker->currentIndex() < target ? Qt::Key_Down : Qt::Key_Up);
    ASSERT_EQ(picker->currentIndex(), target);
}

class ContentViewTest : public ScreenTest
{
protected:
    // Shown unless asked otherwise, then without the old-backup alert, which has a test of its own.
    void open(const QList<LinkItem> &items = threeRecords(), bool shown = true)
    {
        m_tester.reset();
        m_view.reset();
        if (shown)
            m_settings.setWarnOldBackup(false);
        m_store = startWith(items, {u"Administratif"_s, u"Loisirs"_s, u"Travail"_s});
        m_store->setDialogs(&m_dialogs);
        m_view = std::make_unique<ContentView>(*m_store, m_dialogs, m_workspace, m_settings, m_clock);
        m_tester = std::make_unique<QAbstractItemModelTester>(
            &m_view->model(), QAbstractItemModelTester::FailureReportingMode::Fatal);
        m_view->resize(1000, 640);
        if (shown) {
            m_view->show();
            QCoreApplication::processEvents();
        }
    }

    // The listed titles, as "Facture|Projet Qt|…".
    QString listed() const { return rowTexts(m_view->model(), LinkListModel::TitleRole); }
    int rowOf(const QString &title) const { return int(listed().split(u'|').indexOf(title)); }
    QUuid idOf(const QString &title) const { return m_view->model().idAt(rowOf(title)); }
    bool showsNoSelection() { return showsLabel(m_view.get(), u"Aucune fiche sélectionnée"_s); }
    template <typename T> T *find(const QString &name) { return child<T>(m_view.get(), name); }

    std::unique_ptr<LinkStore> m_store;
    std::unique_ptr<ContentView> m_view;
    std::unique_ptr<QAbstractItemModelTester> m_tester;
};

TEST_F(ContentViewTest, SidebarControlsComeInOrderAndTheToolbarHasFiveSymbolButtons)
{
    open();
    auto *search = find<QLineEdit>(u"search"_s);
    auto *categories = find<QComboBox>(u"categoryPicker"_s);
    auto *sort = find<QComboBox>(u"sortPicker"_s);
    auto *favorites = find<QCheckBox>(u"favoritesOnly"_s);
    auto *dateFilter = find<QCheckBox>(u"dateFilter"_s);
    auto *brokenOnly = find<QCheckBox>(u"brokenOnly"_s);
    EXPECT_EQ(QStringList({search->placeholderText(), categories->currentText(), sort->currentText(),
                           favorites->text(), dateFilter->text(), brokenOnly->text()})
                  .join(u'|'),
              u"Rechercher…|Toutes|Plus récent d'abord|Favoris uniquement|Filtrer par date|"
              "Liens cassés uniquement"_s);
    EXPECT_EQ(choices(categories).join(u'|'), u"Toutes|Administratif|Loisirs|Travail"_s);
    EXPECT_EQ(choices(sort).join(u'|'),
              u"Plus récent d'abord|Plus ancien d'abord|Ordre alphabétique (A → Z)"_s);
    EXPECT_EQ(notShown(m_view.get(), {u"Catégorie"_s, u"Tri"_s, u"Aucune fiche sélectionnée"_s}),
              QStringList());

    auto *dateRow = find<QWidget>(u"dateRow"_s);
    EXPECT_FALSE(dateRow->isVisible());
    QTest::keyClick(dateFilter, Qt::Key_Space);
    EXPECT_EQ(notShown(dateRow, {u"Du"_s, u"Au"_s}), QStringList());
    const QDateTime now = QDateTime::fromSecsSinceEpoch(qint64(newYear2025.toUnix()));
    EXPECT_EQ(find<QDateEdit>(u"dateTo"_s)->date(), now.date());
    EXPECT_EQ(find<QDateEdit>(u"dateFrom"_s)->date(), now.addMonths(-1).date());

    const QWidget *column[]{search,     categories, sort,       favorites,
                            dateFilter, dateRow,    brokenOnly, m_view->list()};
    const auto top = [&](const QWidget *w) { return w->mapTo(m_view.get(), QPoint(0, 0)).y(); };
    for (std::size_t i = 1; i < std::size(column); ++i)
        EXPECT_LT(top(column[i - 1]), top(column[i])) << column[i]->objectName().toStdString();

    EXPECT_EQ(m_view->toolBar()->toolButtonStyle(), Qt::ToolButtonIconOnly);
    const QList<QAction *> buttons{m_view->newItemAction(), m_view->categoriesAction(),
                                   m_view->exportAction(), m_view->restoreAction(),
                                   m_view->backupHistoryAction()};
    EXPECT_EQ(m_view->toolBar()->actions().mid(0, 5), buttons);
    for (QAction *button : buttons)
        EXPECT_FALSE(button->icon().isNull());
}

TEST_F(ContentViewTest, EachFilterControlNarrowsTheListAndTheChosenOrderIsStored)
{
    const auto type = [this](const QString &text) {
        return [this, text] { QTest::keyClicks(find<QLineEdit>(u"search"_s), text); };
    };
    const auto pick = [this](const QString &picker, const QString &text) {
        return [this, picker, text] { choose(find<QComboBox>(picker), text); };
    };
    const auto tick = [this](const QString &toggle) {
        return [this, toggle] { QTest::keyClick(find<QCheckBox>(toggle), Qt::Key_Space); };
    };
    const std::tuple<const char *, std::function<void()>, QString> cases[]{
        {"nothing", [] {}, u"Facture|Projet Qt|Été en Provence"_s},
        {"search in two titles", type(u"pro"_s), u"Projet Qt|Été en Provence"_s},
        {"category", pick(u"categoryPicker"_s, u"Travail"_s), u"Projet Qt"_s},
        {"favourites only", tick(u"favoritesOnly"_s), u"Projet Qt"_s},
        {"date range of the last month", tick(u"dateFilter"_s), u"Facture"_s},
        {"oldest first", pick(u"sortPicker"_s, u"Plus ancien d'abord"_s),
         u"Été en Provence|Projet Qt|Facture"_s}};
    for (const auto &[name, act, expected] : cases) {
        SCOPED_TRACE(name);
        open();
        act();
        EXPECT_EQ(listed(), expected);
    }

    open({record(u"Mouche"_s, u"Loisirs"_s, 700000000), record(u"Abeille"_s, u"Loisirs"_s, 710000000),
          record(u"Zèbre"_s, u"Loisirs"_s, 720000000)});
    choose(find<QComboBox>(u"sortPicker"_s), u"Ordre alphabétique (A → Z)"_s);
    EXPECT_EQ(m_settings.sortOrder(), u"Ordre alphabétique (A → Z)"_s);
    EXPECT_EQ(listed(), u"Abeille|Mouche|Zèbre"_s);
}

// The health pass runs beside the window; each step waits for the passes it started to end.
TEST_F(ContentViewTest, BrokenRecordsAreMarkedAndFilteredAsTheirFilesComeAndGo)
{
    const QString folder = m_as.filePath(u"fichiers"_s);
    QDir().mkpath(folder);
    writeBytes(folder + u"/present.pdf"_s, "x");
    writeBytes(folder + u"/garde.pdf"_s, "x");
    LinkItem page = record(u"Page"_s, u"Travail"_s, 730000000);
    const Attachment lost{QUuid::createUuid(), u"manquant.pdf"_s, folder + u"/manquant.pdf"_s};
    page.attachments = {{QUuid::createUuid(), u"garde.pdf"_s, folder + u"/garde.pdf"_s}, lost};
    const auto onDisk = [](LinkItem item, LinkKind kind, const QString &path) {
        item.kind = kind;
        item.path = path;
        return item;
    };
    open({onDisk(record(u"Présent"_s, u"Loisirs"_s, 700000000), LinkKind::file, folder + u"/present.pdf"_s),
          onDisk(record(u"Perdu"_s, u"Loisirs"_s, 710000000), LinkKind::file, folder + u"/perdu.pdf"_s),
          onDisk(record(u"Pas un dossier"_s, u"Travail"_s, 720000000), LinkKind::directory,
                 folder + u"/present.pdf"_s),
          page});
    auto *health = m_view->findChild<HealthMonitor *>(u"healthMonitor"_s);
    ASSERT_NE(health, nullptr);
    const auto settle = [&] { ASSERT_TRUE(QTest::qWaitFor([&] { return !health->isRunning(); }, 30000)); };
    // The titles of the rows with a mark, and whether each mark's tooltip names the file.
    const auto marked = [&] {
        QStringList titles;
        for (int row = 0; row < m_view->model().rowCount(); ++row) {
            const QModelIndex index = m_view->model().index(row);
            const QVariant problem = index.data(LinkListModel::HealthRole);
            if (!problem.isValid())
                continue;
            titles << index.data(LinkListModel::TitleRole).toString();
            EXPECT_EQ(index.data(Qt::ToolTipRole), problem);
            EXPECT_TRUE(problem.toString().contains(folder)) << problem.toString().toStdString();
        }
        return titles.join(u'|');
    };
    const std::tuple<const char *, std::function<void()>, QString, QString> steps[]{
        {"first pass", [] {}, u"Page|Pas un dossier|Perdu"_s, u"Page|Pas un dossier|Perdu|Présent"_s},
        {"broken only, after the others",
         [&] {
             QTest::keyClick(find<QCheckBox>(u"brokenOnly"_s), Qt::Key_Space);
             choose(find<QComboBox>(u"categoryPicker"_s), u"Loisirs"_s);
         },
         u"Perdu"_s, u"Perdu"_s},
        {"the record is pointed at where its file went",
         [&] {
             writeBytes(folder + u"/retrouve.pdf"_s, "x");
             EXPECT_TRUE(m_store->relocate(idOf(u"Perdu"_s), folder + u"/retrouve.pdf"_s));
         },
         u""_s, u""_s},
        {"a file goes while the window is away",
         [&] {
             QFile::remove(folder + u"/present.pdf"_s);
             health->refreshAll();
         },
         u"Présent"_s, u"Présent"_s},
    };
    for (const auto &[name, act, expectedMarks, expectedListed] : steps) {
        SCOPED_TRACE(name);
        act();
        settle();
        EXPECT_EQ(marked(), expectedMarks);
        EXPECT_EQ(listed(), expectedListed);
    }

    // The detail marks the link when it is what broke, and each attachment whose copy is gone.
    choose(find<QComboBox>(u"categoryPicker"_s), u"Travail"_s);
    ASSERT_EQ(listed(), u"Page|Pas un dossier"_s);
    const auto marks = [&](const QString &title) {
        clickRow(m_view->list(), rowOf(title));
        QCoreApplication::processEvents(); // rows added to a shown layout are shown from the event loop
        QStringList shown;
        for (const QString &name : {u"linkProblem"_s, u"attachmentProblem"_s}) {
            for (const QLabel *mark : m_view->detailView()->findChildren<QLabel *>(name)) {
                if (mark->isVisibleTo(m_view.get()))
                    shown << name + u' ' + mark->toolTip();
            }
        }
        return shown;
    };
    const QString notAFolder = marks(u"Pas un dossier"_s).value(0);
    EXPECT_TRUE(notAFolder.startsWith(u"linkProblem "_s) && notAFolder.contains(folder))
        << notAFolder.toStdString();
    const QStringList pageMarks = marks(u"Page"_s);
    ASSERT_EQ(pageMarks.size(), 1);
    EXPECT_TRUE(pageMarks[0].startsWith(u"attachmentProblem "_s) && pageMarks[0].contains(lost.filePath));
}

// "Rechercher…" on a lost file and on a lost attachment copy: a folder, a search, a proposal.
TEST_F(ContentViewTest, RechercherProposesWhatItFindsAndRepairsOnlyWhenAccepted)
{
    const QString root = m_as.filePath(u"disque"_s);
    writeBytes(root + u"/nouveau/sous/rapport.pdf"_s, "abc");
    writeBytes(root + u"/nouveau/copie.txt"_s, "c");
    QDir().mkpath(root + u"/vide"_s);
    const QString found = root + u"/nouveau/sous/rapport.pdf"_s;
    const QString lostPath = root + u"/ancien/rapport.pdf"_s;
    const QString lostCopy = root + u"/ancien/copie.txt"_s;
    struct Case
    {
        const char *name;
        QString button;
        std::optional<QStringList> folder; // nothing: the panel is cancelled
        std::deque<AlertAnswer> answers;
        QString alertTitles; // the alerts shown, in order
        QString path;        // the record's path afterwards
        QString copy;        // the attachment's copy afterwards
    };
    const Case cases[]{
        {"panel cancelled", u"searchLink"_s, std::nullopt, {}, u""_s, lostPath, lostCopy},
        {"nothing below the folder",
         u"searchLink"_s,
         QStringList{root + u"/vide"_s},
         {},
         u"Rien trouvé"_s,
         lostPath,
         lostCopy},
        {"proposal declined",
         u"searchLink"_s,
         QStringList{root},
         {{1, found}},
         u"« rapport.pdf » a été trouvé"_s,
         lostPath,
         lostCopy},
        {"a typed path that is not there",
         u"searchLink"_s,
         QStringList{root},
         {{0, root + u"/faux.pdf"_s}},
         u"« rapport.pdf » a été trouvé|La fiche n’a pas été modifiée"_s,
         lostPath,
         lostCopy},
        {"proposal accepted",
         u"searchLink"_s,
         QStringList{root},
         {{0, found}},
         u"« rapport.pdf » a été trouvé"_s,
         found,
         lostCopy},
        {"attachment copy",
         u"searchAttachment"_s,
         QStringList{root},
         {{0, root + u"/nouveau/copie.txt"_s}},
         u"« copie.txt » a été trouvé"_s,
         lostPath,
         root + u"/nouveau/copie.txt"_s},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        LinkItem item = record(u"Rapport"_s, u"Travail"_s, 700000000);
        item.kind = LinkKind::file;
        item.path = lostPath;
        item.attachments = {{QUuid::createUuid(), u"copie.txt"_s, lostCopy}};
        open({item});
        auto *health = m_view->findChild<HealthMonitor *>(u"healthMonitor"_s);
        ASSERT_TRUE(QTest::qWaitFor([&] { return !health->isRunning(); }, 30000));
        clickRow(m_view->list(), 0);
        QCoreApplication::processEvents();
        m_dialogs.alerts.clear();
        m_dialogs.openChoices = {c.folder};
        m_dialogs.alertAnswers = c.answers;
        auto *button = m_view->detailView()->findChild<QPushButton *>(c.button);
        ASSERT_NE(button, nullptr);
        ASSERT_TRUE(button->isVisibleTo(m_view.get()));
        click(button);
        ASSERT_TRUE(QTest::qWaitFor([&] { return !m_view->findChild<RelocationSearch *>(); }, 30000));
        QStringList titles;
        for (const AlertRequest &alert : m_dialogs.alerts)
            titles << alert.message;
        EXPECT_EQ(titles.join(u'|'), c.alertTitles);
        const LinkItem saved = onDisk().items.value(0);
        EXPECT_EQ(saved.path, c.path);
        EXPECT_EQ(saved.attachments.value(0).filePath, c.copy);
        EXPECT_EQ(saved.attachments.value(0).fileName, u"copie.txt"_s);
    }
}

// A renamed home folder: the proposal says what it would repair and replaces the prefix only when
// accepted, leaving the record it cannot mend as it was.
TEST_F(ContentViewTest, MovedFolderProposalRepairsTheRecordsItAnnouncedWhenAccepted)
{
    const QString home = m_as.filePath(u"home"_s);
    writeBytes(home + u"/nouveau/Documents/a.pdf"_s, "a");
    writeBytes(home + u"/nouveau/Documents/b.pdf"_s, "b");
    const QString ancien = home + u"/ancien", nouveau = home + u"/nouveau";
    const auto file = [](const QString &title, const QString &path) {
        LinkItem item = record(title, u"Travail"_s, 700000000);
        item.kind = LinkKind::file;
        item.path = path;
        return item;
    };
    const QList<LinkItem> lost{file(u"A"_s, ancien + u"/Documents/a.pdf"_s),
                               file(u"B"_s, ancien + u"/Documents/b.pdf"_s),
                               file(u"Perdu"_s, ancien + u"/Documents/perdu.pdf"_s)};
    const QString question = u"Remplacer « "_s + ancien + u" » par « "_s + nouveau + u" » ?"_s;
    struct Case
    {
        const char *name;
        QList<LinkItem> items;
        int answer;
        QString alert; // the first alert's message and informative text
        QStringList paths;
    };
    const Case cases[]{
        {"declined",
         lost,
         1,
         question + u" 2 fiche(s) seraient réparées, 1 resteraient cassées."_s,
         {lost[0].path, lost[1].path, lost[2].path}},
        {"accepted",
         lost,
         0,
         question + u" 2 fiche(s) seraient réparées, 1 resteraient cassées."_s,
         {nouveau + u"/Documents/a.pdf"_s, nouveau + u"/Documents/b.pdf"_s, lost[2].path}},
        {"nothing moved",
         {file(u"A"_s, nouveau + u"/Documents/a.pdf"_s)},
         0,
         u"Aucun dossier déplacé à réparer Fiva n’a trouvé aucun dossier disparu dont le contenu se retrouve "
         "ailleurs à côté."_s,
         {nouveau + u"/Documents/a.pdf"_s}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        open(c.items);
        auto *health = m_view->findChild<HealthMonitor *>(u"healthMonitor"_s);
        ASSERT_TRUE(QTest::qWaitFor([&] { return !health->isRunning(); }, 30000));
        m_dialogs.alerts.clear();
        m_dialogs.alertAnswers = {{c.answer, {}}};
        click(find<QPushButton>(u"repairMovedFolders"_s));
        ASSERT_TRUE(QTest::qWaitFor([&] { return !m_view->findChild<PrefixRelocation *>(); }, 30000));
        ASSERT_FALSE(m_dialogs.alerts.empty());
        EXPECT_EQ(m_dialogs.alerts.front().message + u' ' + m_dialogs.alerts.front().informativeText,
                  c.alert);
        QStringList paths;
        for (const LinkItem &item : onDisk().items)
            paths << item.path;
        EXPECT_EQ(paths, c.paths);
    }
}

// Pages served by the test itself on 127.0.0.1: one alive, one dead, one moved.
TEST_F(ContentViewTest, WebCheckMarksDeadPagesAndOffersTheNewAddressOfMovedOnes)
{
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
    test::CannedServer server{{{"/ok", {200}}, {"/mort", {404}}, {"/parti", {301, "/ok"}}}};
    const auto page = [](const QString &title, const QString &address, double createdAt) {
        LinkItem item = record(title, u"Loisirs"_s, createdAt);
        item.path = address;
        return item;
    };
    const std::pair<int, QString> cases[]{{0, server.url(u"/ok"_s)}, {1, server.url(u"/parti"_s)}};
    for (const auto &[answer, movedPath] : cases) {
        SCOPED_TRACE(answer);
        open({page(u"Vivante"_s, server.url(u"/ok"_s), 700000000),
              page(u"Morte"_s, server.url(u"/mort"_s), 710000000),
              page(u"Déplacée"_s, server.url(u"/parti"_s), 720000000)});
        auto *health = m_view->findChild<HealthMonitor *>(u"healthMonitor"_s);
        m_dialogs.alerts.clear();
        m_dialogs.alertAnswers = {{0, {}}, {answer, {}}};
        click(find<QPushButton>(u"checkWebPages"_s));
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return !m_view->findChild<WebCheckRun *>() && !health->isRunning(); }, 30000));
        QStringList alerts;
        for (const AlertRequest &alert : m_dialogs.alerts)
            alerts << alert.message + u' ' + alert.informativeText;
        EXPECT_EQ(alerts, (QStringList{u"Vérification terminée 3 page(s) vérifiée(s), 1 en erreur."_s,
                                       u"La page a changé d’adresse « "_s + server.url(u"/parti"_s) +
                                           u" » mène à « "_s + server.url(u"/ok"_s) +
                                           u" ». Mettre à jour la fiche ?"_s}));
        const QModelIndex dead = m_view->model().index(rowOf(u"Morte"_s));
        EXPECT_TRUE(dead.data(LinkListModel::HealthRole).toString().contains(u"404"_s));
        for (const QString &alive : {u"Vivante"_s, u"Déplacée"_s})
            EXPECT_FALSE(m_view->model().index(rowOf(alive)).data(LinkListModel::HealthRole).isValid());
        EXPECT_EQ(onDisk().items.value(2).path, movedPath);
    }
}

TEST_F(ContentViewTest, SelectingARowShowsItsDetailUntilClosedOrGone)
{
    open();
    const QUuid projet = idOf(u"Projet Qt"_s);
    clickRow(m_view->list(), rowOf(u"Projet Qt"_s));
    ASSERT_NE(m_view->detailView(), nullptr);
    EXPECT_EQ(m_view->detailView()->itemId(), projet);
    EXPECT_FALSE(showsNoSelection());

    // Hidden by the search, still shown on the right, selected again once listed again.
    QTest::keyClicks(find<QLineEdit>(u"search"_s), u"facture"_s);
    EXPECT_EQ(listed(), u"Facture"_s);
    ASSERT_NE(m_view->detailView(), nullptr);
    EXPECT_EQ(m_view->detailView()->itemId(), projet);
    find<QLineEdit>(u"search"_s)->clear();
    EXPECT_EQ(m_view->list()->selectionModel()->selectedRows().value(0).row(), rowOf(u"Projet Qt"_s));

    m_store->deleteItem(projet);
    flushDeletions();
    EXPECT_EQ(m_view->detailView(), nullptr);
    EXPECT_TRUE(showsNoSelection());

    clickRow(m_view->list(), rowOf(u"Facture"_s));
    ASSERT_NE(m_view->detailView(), nullptr);
    QTest::mouseClick(buttonWithText(m_view->detailView(), u"Fermer"_s), Qt::LeftButton);
    flushDeletions();
    EXPECT_EQ(m_view->selectedItemID(), std::nullopt);
    EXPECT_TRUE(showsNoSelection());
}

TEST_F(ContentViewTest, StarTogglesTheFavouriteWithoutSelectingTheRowAndDeleteDeletesWithoutAsking)
{
    open();
    const int row = rowOf(u"Facture"_s);
    const QPoint star = m_view->starRectOfRow(row).center();
    QTest::mouseClick(m_view->list()->viewport(), Qt::LeftButton, {}, star);
    EXPECT_TRUE(onDisk().items.at(2).isFavorite);
    EXPECT_TRUE(m_view->model().index(row).data(LinkListModel::FavoriteRole).toBool());
    EXPECT_EQ(m_view->selectedItemID(), std::nullopt);
    QTest::mouseClick(m_view->list()->viewport(), Qt::LeftButton, {}, star);
    EXPECT_FALSE(onDisk().items.at(2).isFavorite);

    clickRow(m_view->list(), rowOf(u"Projet Qt"_s));
    QTest::keyClick(m_view->list(), Qt::Key_Delete);
    flushDeletions();
    EXPECT_EQ(listed(), u"Facture|Été en Provence"_s);
    EXPECT_TRUE(m_dialogs.alerts.empty());
    EXPECT_TRUE(showsNoSelection());
    // Rows are read before anything goes, although the list shrinks meanwhile.
    m_store->appendItem(record(u"Bail"_s, u"Loisirs"_s, 720000000));
    m_view->deleteRows({1, 0});
    EXPECT_EQ(listed(), u"Été en Provence"_s);
}

TEST_F(ContentViewTest, ToolbarButtonsOpenTheirSheets)
{
    open();
    m_view->newItemAction()->trigger();
    EditLinkView *sheet = m_view->editSheet();
    ASSERT_NE(sheet, nullptr);
    EXPECT_EQ(sheet->windowTitle(), u"Nouvelle fiche"_s);
    m_view->newItemAction()->trigger();
    EXPECT_EQ(m_view->editSheet(), sheet);
    // Another context replaces the sheet.
    clickRow(m_view->list(), 0);
    QTest::mouseClick(buttonWithText(m_view->detailView(), u"Modifier"_s), Qt::LeftButton);
    ASSERT_NE(m_view->editSheet(), nullptr);
    EXPECT_EQ(m_view->editSheet()->windowTitle(), u"Modifier la fiche"_s);
    m_view->editSheet()->reject();
    EXPECT_EQ(m_view->editSheet(), nullptr);

    m_view->categoriesAction()->trigger();
    ASSERT_NE(m_view->categoriesSheet(), nullptr);
    EXPECT_EQ(m_view->categoriesSheet()->windowTitle(), u"Gestion des catégories"_s);
    m_view->backupHistoryAction()->trigger();
    ASSERT_NE(m_view->backupHistorySheet(), nullptr);
    EXPECT_EQ(m_view->backupHistorySheet()->windowTitle(), u"Historique des sauvegardes"_s);
    QTest::mouseClick(m_view->backupHistorySheet()->findChild<QToolButton *>(), Qt::LeftButton);
    flushDeletions();
    EXPECT_EQ(m_view->backupHistorySheet(), nullptr);
}

TEST_F(ContentViewTest, ExportSaysSauvegardeTermineeAndOnlyRestaurerRestores)
{
    open();
    auto *status = find<QLabel>(u"lastBackup"_s);
    EXPECT_EQ(status->text(), u"Aucune sauvegarde"_s);
    const QString archive = m_as.filePath(u"copie.fivabackup"_s);
    m_dialogs.saveChoices = {std::nullopt, archive};
    m_view->exportAction()->trigger();
    EXPECT_TRUE(m_dialogs.alerts.empty());
    printedBy([&] { m_view->exportAction()->trigger(); });
    EXPECT_EQ(alertTexts(m_dialogs), QStringList{u"Sauvegarde terminée||info|OK"_s});
    ASSERT_TRUE(m_store->lastBackupDate().has_value());
    EXPECT_TRUE(status->text().startsWith(u"Dernière sauvegarde : "_s));
    EXPECT_EQ(status->text(), ContentView::lastBackupText(m_store->lastBackupDate()));

    m_store->deleteItem(idOf(u"Facture"_s));
    m_dialogs.alerts.clear();
    const QByteArray before = readBytes(dataFile());
    m_dialogs.openChoices = {QStringList{archive}, std::nullopt, QStringList{archive}};
    m_dialogs.alertAnswers = {{1, {}}, {0, {}}};
    m_view->restoreAction()->trigger();
    EXPECT_EQ(m_dialogs.openPanels.at(0),
              (OpenPanelRequest{OpenPanelRequest::Kind::files, {u"fivabackup"_s}, false, {}}));
    EXPECT_EQ(alertTexts(m_dialogs),
              QStringList{u"Restaurer les données ?|Cette opération écrasera toutes les "
                          u"données actuelles.|warning|Restaurer,Annuler"_s});
    EXPECT_EQ(readBytes(dataFile()), before);
    EXPECT_EQ(listed(), u"Projet Qt|Été en Provence"_s);
    // A cancelled panel asks nothing.
    m_view->restoreAction()->trigger();
    EXPECT_EQ(m_dialogs.alerts.size(), 1u);
    printedBy([&] { m_view->restoreAction()->trigger(); });
    EXPECT_EQ(listed(), u"Facture|Projet Qt|Été en Provence"_s);
}

// Through the window: a restore offers its undo in the banner, the undo gives back the data file
// byte for byte, and a save that fails later shows there instead of only on standard output.
TEST_F(ContentViewTest, BannerUndoesARestoreAndTellsOfAFailedSave)
{
    open();
    auto *banner = find<FailureBanner>(u"failureBanner"_s);
    ASSERT_NE(banner, nullptr);
    EXPECT_FALSE(banner->isVisible());
    const QString archive = m_as.filePath(u"copie.fivabackup"_s);
    m_dialogs.saveChoices = {archive};
    printedBy([&] { m_view->exportAction()->trigger(); });
    m_store->deleteItem(idOf(u"Facture"_s));
    const QByteArray before = readBytes(dataFile());

    m_dialogs.openChoices = {QStringList{archive}};
    printedBy([&] { m_view->restoreAction()->trigger(); });
    EXPECT_EQ(listed(), u"Facture|Projet Qt|Été en Provence"_s);
    EXPECT_TRUE(banner->isVisible());
    EXPECT_TRUE(banner->text().startsWith(u"Les données ont été restaurées depuis « copie.fivabackup »."_s))
        << banner->text().toStdString();
    ASSERT_TRUE(banner->undoButton()->isVisible());
    EXPECT_EQ(banner->undoButton()->text(), u"Annuler la restauration"_s);

    click(banner->undoButton());
    EXPECT_EQ(readBytes(dataFile()), before);
    EXPECT_EQ(listed(), u"Projet Qt|Été en Provence"_s);
    EXPECT_FALSE(banner->undoButton()->isVisible());
    click(banner->closeButton());
    EXPECT_FALSE(banner->isVisible());

    // The data file's place is taken by a folder: the next change cannot be written.
    const qsizetype alerts = qsizetype(m_dialogs.alerts.size());
    QFile::remove(dataFile());
    ASSERT_TRUE(QDir().mkpath(dataFile()));
    printedBy([&] { m_view->deleteRows({0}); });
    EXPECT_TRUE(banner->isVisible());
    EXPECT_TRUE(
        banner->text().startsWith(u"Vos modifications n'ont pas pu être enregistrées. « "_s + dataFile() +
                                  u" » est un dossier, pas un fichier. (Is a directory, EISDIR) Vérifiez"_s))
        << banner->text().toStdString();
    EXPECT_FALSE(banner->undoButton()->isVisible());
    EXPECT_EQ(qsizetype(m_dialogs.alerts.size()), alerts) << "a banner, not an alert";
}

// Where the three-day limit lies is the store's verdict (isBackupOld); the window asks it when the setting
// allows, and again on each appearance.
TEST_F(ContentViewTest, OldBackupAlertFollowsTheSettingAndTheStoresVerdictOnEachAppearance)
{
    const QString old =
        u"⚠️ Sauvegarde ancienne|Votre dernière sauvegarde manuelle date de plus de 3 jours.|info|OK"_s;
    // Warning on, a backup made just now, whether the alert comes.
    for (const auto &[warn, backedUp, alert] :
         {std::tuple{true, false, true}, {true, true, false}, {false, false, false}}) {
        SCOPED_TRACE(testing::Message() << warn << backedUp);
        m_settings.setWarnOldBackup(warn);
        open(threeRecords(), false);
        if (backedUp)
            m_store->setLastBackupDate(newYear2025);
        m_dialogs.alerts.clear();
        m_view->checkOldBackup();
        EXPECT_EQ(alertTexts(m_dialogs), alert ? QStringList{old} : QStringList());
    }

    m_settings.setWarnOldBackup(true);
    m_dialogs.alerts.clear();
    open(threeRecords(), false);
    EXPECT_TRUE(m_dialogs.alerts.empty());
    for (const QStringList &expected : {QStringList{old}, QStringList{old, old}}) {
        showAgain(m_view.get());
        EXPECT_EQ(alertTexts(m_dialogs), expected);
    }
}

} // namespace
