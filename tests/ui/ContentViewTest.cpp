#include "ui/main/ContentView.h"

#include "interchange/BookmarkImport.h"
#include "store/FileIO.h"
#include "ui/editing/EditLinkView.h"
#include "ui/main/BookmarkImportDialog.h"
#include "ui/main/DetailView.h"
#include "ui/main/DroppedLinks.h"
#include "ui/main/DuplicatesDialog.h"
#include "ui/main/FailureBanner.h"
#include "ui/main/HealthMonitor.h"
#include "ui/main/LinkListModel.h"
#include "ui/main/PrefixRelocation.h"
#include "ui/main/RelocationSearch.h"
#include "ui/main/WebCheckRun.h"

#include <QAbstractItemModelTester>
#include <QClipboard>
#include <QDateEdit>
#include <QDateTime>
#include <QDialog>
#include <QDir>
#include <QMimeData>
#include <QNetworkProxy>
#include <QPushButton>
#include <QSignalSpy>
#include <QToolBar>
#include <QToolButton>
#include <QTreeWidget>

#include <functional>

#include "health/CannedServer.h"
#include "health/HealthCache.h"
#include "support/ScreenTest.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

LinkItem record(const QString &title, const QString &category, double createdAt, bool favorite = false)
{
    return makeItem({title, u"https://example.org/"_s + title, std::nullopt, category, createdAt, favorite});
}

// A record whose location is what the test is about.
LinkItem at(const QString &title, const QString &path, LinkKind kind = LinkKind::url,
            double createdAt = 700000000, const QString &category = u"Loisirs"_s)
{
    LinkItem item = record(title, category, createdAt);
    item.kind = kind;
    item.path = path;
    return item;
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
    // The health monitor, once the passes it started have ended.
    HealthMonitor *settled()
    {
        auto *health = m_view->findChild<HealthMonitor *>(u"healthMonitor"_s);
        EXPECT_TRUE(health && QTest::qWaitFor([&] { return !health->isRunning(); }, 30000));
        return health;
    }
    // The alerts asked so far, as "message informative text".
    QStringList alertLines() const
    {
        QStringList lines;
        for (const AlertRequest &alert : m_dialogs.alerts)
            lines << alert.message + u' ' + alert.informativeText;
        return lines;
    }

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
    open({at(u"Présent"_s, folder + u"/present.pdf"_s, LinkKind::file, 700000000),
          at(u"Perdu"_s, folder + u"/perdu.pdf"_s, LinkKind::file, 710000000),
          at(u"Pas un dossier"_s, folder + u"/present.pdf"_s, LinkKind::directory, 720000000, u"Travail"_s),
          page});
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
             settled()->refreshAll();
         },
         u"Présent"_s, u"Présent"_s},
    };
    for (const auto &[name, act, expectedMarks, expectedListed] : steps) {
        SCOPED_TRACE(name);
        act();
        settled();
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

// The size of an attachment copy outlives the run that saw it, web check or not, so that a copy lost
// while Fiva was closed can still be searched for by size.
TEST_F(ContentViewTest, AttachmentSizesAreKeptForTheNextRun)
{
    const QString copy = m_as.filePath(u"fichiers/plan.pdf"_s);
    QDir().mkpath(QFileInfo(copy).path());
    writeBytes(copy, "%PDF-1");
    LinkItem page = record(u"Page"_s, u"Travail"_s, 730000000);
    const Attachment plan{QUuid::createUuid(), u"plan.pdf"_s, copy};
    page.attachments = {plan};
    for (const bool present : {true, false}) {
        SCOPED_TRACE(present);
        if (!present)
            QFile::remove(copy);
        open({page});
        HealthMonitor *health = settled();
        EXPECT_EQ(health->cache().attachmentSize(plan.id), std::optional<qint64>(6));
        EXPECT_EQ(health->cache().isBroken(page.id), !present);
    }
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
        bool link;      // the record's own file, else its attachment's copy
        QString folder; // empty: the panel is cancelled
        int answer;     // to the proposal, with `typed` in its field
        QString typed;
        QString alertTitles; // the alerts shown, in order
        QString after;       // the path searched for, afterwards
    };
    const Case cases[]{
        {"panel cancelled", true, {}, 0, {}, {}, lostPath},
        {"nothing below the folder", true, root + u"/vide"_s, 0, {}, u"Rien trouvé"_s, lostPath},
        {"proposal declined", true, root, 1, found, u"« rapport.pdf » a été trouvé"_s, lostPath},
        {"a typed path that is not there", true, root, 0, root + u"/faux.pdf"_s,
         u"« rapport.pdf » a été trouvé|La fiche n’a pas été modifiée"_s, lostPath},
        {"proposal accepted", true, root, 0, found, u"« rapport.pdf » a été trouvé"_s, found},
        {"attachment copy", false, root, 0, root + u"/nouveau/copie.txt"_s, u"« copie.txt » a été trouvé"_s,
         root + u"/nouveau/copie.txt"_s},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        LinkItem item = at(u"Rapport"_s, lostPath, LinkKind::file);
        item.attachments = {{QUuid::createUuid(), u"copie.txt"_s, lostCopy}};
        open({item});
        settled();
        clickRow(m_view->list(), 0);
        QCoreApplication::processEvents();
        m_dialogs.alerts.clear();
        m_dialogs.openChoices = {c.folder.isEmpty() ? std::nullopt : std::optional(QStringList{c.folder})};
        m_dialogs.alertAnswers = {{c.answer, c.typed}};
        auto *button =
            m_view->detailView()->findChild<QPushButton *>(c.link ? u"searchLink"_s : u"searchAttachment"_s);
        ASSERT_NE(button, nullptr);
        ASSERT_TRUE(button->isVisibleTo(m_view.get()));
        click(button);
        ASSERT_TRUE(QTest::qWaitFor([&] { return !m_view->findChild<RelocationSearch *>(); }, 30000));
        QStringList titles;
        for (const AlertRequest &alert : m_dialogs.alerts)
            titles << alert.message;
        EXPECT_EQ(titles.join(u'|'), c.alertTitles);
        const LinkItem saved = onDisk().items.value(0);
        EXPECT_EQ(saved.path, c.link ? c.after : lostPath);
        EXPECT_EQ(saved.attachments.value(0).filePath, c.link ? lostCopy : c.after);
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
    const QString a = u"/Documents/a.pdf"_s, b = u"/Documents/b.pdf"_s, perdu = u"/Documents/perdu.pdf"_s;
    const QList<LinkItem> lost{at(u"A"_s, ancien + a, LinkKind::file), at(u"B"_s, ancien + b, LinkKind::file),
                               at(u"Perdu"_s, ancien + perdu, LinkKind::file)};
    const QString proposal = u"Remplacer « "_s + ancien + u" » par « "_s + nouveau +
                             u" » ? 2 fiche(s) seraient réparées, 1 resteraient cassées."_s;
    struct Case
    {
        const char *name;
        QList<LinkItem> items;
        int answer;
        QString alert; // the first alert's message and informative text
        QStringList paths;
    };
    const Case cases[]{
        {"declined", lost, 1, proposal, {ancien + a, ancien + b, ancien + perdu}},
        {"accepted", lost, 0, proposal, {nouveau + a, nouveau + b, ancien + perdu}},
        {"nothing moved",
         {at(u"A"_s, nouveau + a, LinkKind::file)},
         0,
         u"Aucun dossier déplacé à réparer Fiva n’a trouvé aucun dossier disparu dont le contenu se retrouve "
         "ailleurs à côté."_s,
         {nouveau + a}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        open(c.items);
        settled();
        m_dialogs.alerts.clear();
        m_dialogs.alertAnswers = {{c.answer, {}}};
        click(find<QPushButton>(u"repairMovedFolders"_s));
        ASSERT_TRUE(QTest::qWaitFor([&] { return !m_view->findChild<PrefixRelocation *>(); }, 30000));
        EXPECT_EQ(alertLines().value(0), c.alert);
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
    const std::pair<int, QString> cases[]{{0, server.url(u"/ok"_s)}, {1, server.url(u"/parti"_s)}};
    for (const auto &[answer, movedPath] : cases) {
        SCOPED_TRACE(answer);
        open({at(u"Vivante"_s, server.url(u"/ok"_s), LinkKind::url, 700000000),
              at(u"Morte"_s, server.url(u"/mort"_s), LinkKind::url, 710000000),
              at(u"Déplacée"_s, server.url(u"/parti"_s), LinkKind::url, 720000000)});
        auto *health = m_view->findChild<HealthMonitor *>(u"healthMonitor"_s);
        m_dialogs.alerts.clear();
        m_dialogs.alertAnswers = {{0, {}}, {answer, {}}};
        click(find<QPushButton>(u"checkWebPages"_s));
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return !m_view->findChild<WebCheckRun *>() && !health->isRunning(); }, 30000));
        EXPECT_EQ(alertLines(), (QStringList{u"Vérification terminée 3 page(s) vérifiée(s), 1 en erreur."_s,
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

// Ticks shown by the duplicates dialog, as "title:1" or "title:0" per record, groups joined by " / ".
QString ticks(DuplicatesDialog &sheet)
{
    QStringList groups;
    for (int g = 0; g < sheet.tree()->topLevelItemCount(); ++g) {
        QStringList rows;
        const QTreeWidgetItem *group = sheet.tree()->topLevelItem(g);
        for (int r = 0; r < group->childCount(); ++r)
            rows << group->child(r)->text(0) +
                        (group->child(r)->checkState(0) == Qt::Checked ? u":1"_s : u":0"_s);
        groups << rows.join(u' ');
    }
    return groups.join(u" / "_s);
}

TEST_F(ContentViewTest, DuplicatesTickAllButTheOldestAndGoInOneSaveAfterTheUsualQuestion)
{
    struct Case
    {
        const char *name;
        bool ask;
        int answer;        // 0 "Supprimer", 1 "Annuler"
        bool tickAttached; // the user also ticks the record with an attachment
        QString alert;     // the question asked, if any
        QString kept;      // titles left on disk, in order
        int groupsLeft;
    };
    const QString twoGo = u"Supprimer ces 2 fiches ? Cette action est irréversible."_s;
    const Case cases[] = {
        {"confirmed", true, 0, false, twoGo, u"Ancienne|Jointe|Doc 1|Seule"_s, 1},
        {"cancelled", true, 1, false, twoGo, u"Récente|Ancienne|Jointe|Doc 1|Doc 2|Seule"_s, 2},
        {"with the attachment", true, 0, true,
         u"Supprimer ces 3 fiches ? Cette action est irréversible.\nUne pièce jointe ira à la corbeille."_s,
         u"Ancienne|Doc 1|Seule"_s, 0},
        {"without asking", false, 1, false, {}, u"Ancienne|Jointe|Doc 1|Seule"_s, 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const QString copy = m_as.filePath(u"Fiva_Attachments/plan.pdf"_s);
        QDir().mkpath(QFileInfo(copy).path());
        writeBytes(copy, "%PDF");
        LinkItem attached = at(u"Jointe"_s, u"https://EXAMPLE.org/page"_s, LinkKind::url, 720000000);
        attached.attachments = {{QUuid::createUuid(), u"plan.pdf"_s, copy}};
        open({at(u"Récente"_s, u"https://example.org/page/"_s, LinkKind::url, 710000000),
              at(u"Ancienne"_s, u" https://example.org/page"_s, LinkKind::url, 690000000), attached,
              at(u"Doc 1"_s, u"/home/anne/doc.pdf"_s), at(u"Doc 2"_s, u"/home/anne/doc.pdf"_s),
              at(u"Seule"_s, u"https://example.org/Page"_s)});
        m_settings.setAskDeleteConfirmation(c.ask);
        m_view->healthActions().at(2)->trigger();
        DuplicatesDialog *sheet = m_view->duplicatesSheet();
        ASSERT_NE(sheet, nullptr);
        EXPECT_EQ(ticks(*sheet), u"Récente:1 Ancienne:0 Jointe:0 / Doc 1:0 Doc 2:1"_s);
        if (c.tickAttached)
            sheet->tree()->topLevelItem(0)->child(2)->setCheckState(0, Qt::Checked);
        m_dialogs.alerts.clear();
        m_dialogs.alertAnswers = {{c.answer, {}}};
        QSignalSpy saves(m_store.get(), &LinkStore::itemsChanged);
        click(child<QPushButton>(sheet, u"deleteDuplicates"_s));
        EXPECT_EQ(alertLines().join(u'\n'), c.alert);
        QStringList titles;
        for (const LinkItem &item : onDisk().items)
            titles << item.title;
        EXPECT_EQ(titles.join(u'|'), c.kept);
        EXPECT_EQ(saves.size(), c.kept.count(u'|') < 5 ? 1 : 0);
        EXPECT_EQ(QFile::exists(copy), !c.tickAttached);
        // The dialog follows the store: what is left of the groups, with the user's ticks.
        EXPECT_EQ(sheet->groupCount(), c.groupsLeft);
        sheet->reject();
        flushDeletions();
    }

    open({at(u"Une"_s, u"https://example.org/a"_s), at(u"Autre"_s, u"https://example.org/b"_s)});
    m_dialogs.alerts.clear();
    m_view->healthActions().at(2)->trigger();
    EXPECT_EQ(m_view->duplicatesSheet(), nullptr);
    EXPECT_EQ(alertTexts(m_dialogs),
              QStringList{u"Aucun doublon|Aucune fiche ne pointe vers la même adresse ou le "
                          u"même chemin qu’une autre.|info|OK"_s});
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

TEST_F(ContentViewTest, StarTogglesTheFavouriteWithoutSelectingTheRowAndDeletedRowsAreReadFirst)
{
    m_settings.setAskDeleteConfirmation(false);
    open();
    const int row = rowOf(u"Facture"_s);
    const QPoint star = m_view->starRectOfRow(row).center();
    QTest::mouseClick(m_view->list()->viewport(), Qt::LeftButton, {}, star);
    EXPECT_TRUE(onDisk().items.at(2).isFavorite);
    EXPECT_TRUE(m_view->model().index(row).data(LinkListModel::FavoriteRole).toBool());
    EXPECT_EQ(m_view->selectedItemID(), std::nullopt);
    QTest::mouseClick(m_view->list()->viewport(), Qt::LeftButton, {}, star);
    EXPECT_FALSE(onDisk().items.at(2).isFavorite);

    // Rows are read before anything goes, although the list shrinks meanwhile.
    clickRow(m_view->list(), rowOf(u"Projet Qt"_s));
    m_view->deleteRows({1, 0});
    EXPECT_EQ(listed(), u"Été en Provence"_s);
    EXPECT_TRUE(showsNoSelection());
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

// Through the window: a restore comes only after "Restaurer", offers its undo in the banner, and the undo
// gives back the data file byte for byte; a save that fails later shows there instead of only on
// standard output.
TEST_F(ContentViewTest, ExportRestoreAndItsUndoAndAFailedSaveThroughTheWindow)
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
    auto *banner = find<FailureBanner>(u"failureBanner"_s);
    ASSERT_NE(banner, nullptr);
    EXPECT_FALSE(banner->isVisible());
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

// The window must be active for its shortcuts to reach it.
void activate(QWidget *window)
{
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window));
}

// QLineEdit under X11's key bindings claims Ctrl+E (end of line) and Ctrl+D (delete a character) before
// any shortcut; the offscreen platform uses other bindings, so this stands in for them.
class X11LineEditKeys final : public QObject
{
public:
    using QObject::QObject;
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::ShortcutOverride) {
            const QKeyCombination keys = static_cast<QKeyEvent *>(event)->keyCombination();
            if (keys == (Qt::CTRL | Qt::Key_E) || keys == (Qt::CTRL | Qt::Key_D))
                event->accept();
        }
        return false;
    }
};

TEST_F(ContentViewTest, ShortcutsActOnTheSelectedRecordWhereverTheFocusIsAndTheSearchStillEdits)
{
    struct Case
    {
        const char *name;
        QString typed; // typed into the search field, which keeps the focus; else the list has it
        QList<QKeyCombination> keys;
        std::function<void()> check;
    };
    const auto newSheet = [this] {
        ASSERT_NE(m_view->editSheet(), nullptr);
        EXPECT_EQ(child<QLineEdit>(m_view->editSheet(), u"title"_s)->text(), QString());
    };
    const auto editSheet = [this] {
        ASSERT_NE(m_view->editSheet(), nullptr);
        EXPECT_EQ(child<QLineEdit>(m_view->editSheet(), u"title"_s)->text(), u"Facture"_s);
    };
    const auto opened = [this] {
        EXPECT_EQ(m_workspace.calls, std::vector<QString>{u"openUrl https://example.org/Facture"_s});
    };
    const auto favourite = [this] { EXPECT_TRUE(onDisk().items.at(2).isFavorite); };
    const Case cases[] = {
        {"Ctrl+N new record", {}, {Qt::CTRL | Qt::Key_N}, newSheet},
        {"Ctrl+N in the search", u"zzz"_s, {Qt::CTRL | Qt::Key_N}, newSheet},
        {"Ctrl+E edit selected", {}, {Qt::CTRL | Qt::Key_E}, editSheet},
        {"Ctrl+E in the search", u"zzz"_s, {Qt::CTRL | Qt::Key_E}, editSheet},
        {"Return opens the target", {}, {Qt::Key_Return}, opened},
        {"Return in the search, the record listed", u"fact"_s, {Qt::Key_Return}, opened},
        {"Return in the search, the record hidden",
         u"zzz"_s,
         {Qt::Key_Return},
         [this] { EXPECT_TRUE(m_workspace.calls.empty()); }},
        {"Ctrl+D flips the favourite", {}, {Qt::CTRL | Qt::Key_D}, favourite},
        {"Ctrl+D in the search", u"zzz"_s, {Qt::CTRL | Qt::Key_D}, favourite},
        {"Delete deletes",
         {},
         {Qt::Key_Delete},
         [this] { EXPECT_EQ(listed(), u"Projet Qt|Été en Provence"_s); }},
        {"Delete in the search deletes a character",
         u"zzz"_s,
         {Qt::Key_Home, Qt::Key_Delete},
         [this] {
             EXPECT_EQ(find<QLineEdit>(u"search"_s)->text(), u"zz"_s);
             EXPECT_EQ(onDisk().items.size(), 3);
         }},
        {"Ctrl+F focuses the search",
         {},
         {Qt::CTRL | Qt::Key_F},
         [this] { EXPECT_TRUE(find<QLineEdit>(u"search"_s)->hasFocus()); }},
        {"Escape clears the search",
         u"zzz"_s,
         {Qt::Key_Escape},
         [this] {
             EXPECT_EQ(find<QLineEdit>(u"search"_s)->text(), QString());
             EXPECT_EQ(listed(), u"Facture|Projet Qt|Été en Provence"_s);
         }},
    };
    m_settings.setAskDeleteConfirmation(false);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        open();
        activate(m_view.get());
        m_workspace.calls.clear();
        clickRow(m_view->list(), rowOf(u"Facture"_s));
        QWidget *target = m_view->list();
        if (!c.typed.isEmpty()) {
            target = find<QLineEdit>(u"search"_s);
            target->installEventFilter(new X11LineEditKeys(target));
            QTest::keyClicks(target, c.typed);
            ASSERT_EQ(listed().contains(u"Facture"_s), c.typed == u"fact"_s);
        }
        target->setFocus();
        for (const QKeyCombination keys : c.keys)
            QTest::keyClick(target, keys.key(), keys.keyboardModifiers());
        flushDeletions();
        c.check();
        if (m_view->editSheet())
            m_view->editSheet()->reject();
    }
}

TEST_F(ContentViewTest, DeletingRowsAsksOnlyWhileTheSettingIsOn)
{
    struct Case
    {
        bool ask;
        int answer; // 0 "Supprimer", 1 "Annuler"
        bool byKey; // the Delete key, else the menu's command
        bool deleted;
    };
    const QString question =
        u"Supprimer cette fiche ?|Cette action est irréversible.|warning|Supprimer,Annuler"_s;
    for (const Case c : {Case{true, 0, true, true}, Case{true, 1, true, false}, Case{true, 1, false, false},
                         Case{false, 1, true, true}, Case{false, 1, false, true}}) {
        SCOPED_TRACE(testing::Message() << c.ask << c.answer << c.byKey);
        m_settings.setAskDeleteConfirmation(c.ask);
        open();
        m_dialogs.alerts.clear();
        m_dialogs.alertAnswers = {AlertAnswer{c.answer, {}}};
        clickRow(m_view->list(), rowOf(u"Facture"_s));
        if (c.byKey)
            QTest::keyClick(m_view->list(), Qt::Key_Delete);
        else
            m_view->recordActions().at(5)->trigger();
        flushDeletions();
        EXPECT_EQ(alertTexts(m_dialogs), c.ask ? QStringList{question} : QStringList());
        EXPECT_EQ(onDisk().items.size(), c.deleted ? 2 : 3);
        EXPECT_EQ(listed().contains(u"Facture"_s), !c.deleted);
    }
}

TEST_F(ContentViewTest, BackupReminderComesOnItsWeekdayOnceADayUnlessABackupIsRecent)
{
    // Wednesday 1 January 2025 at noon UTC: a Wednesday in every time zone.
    const Timestamp wednesday{newYear2025.seconds + 43200};
    struct Case
    {
        const char *day;
        std::optional<double> backupAge; // seconds before now
        int answer;                      // 0 "Sauvegarder maintenant", 1 "Plus tard"
        bool reminds;
        bool automatic = false;      // the backup in the history is an automatic one
        const char *remindedOn = ""; // the day an earlier run reminded
    };
    const Case cases[] = {
        {"Mercredi", std::nullopt, 1, true},
        {"Mercredi", 86400, 1, true},
        {"Mercredi", 86399, 1, false},
        {"Mardi", std::nullopt, 1, false},
        {"mercredi", std::nullopt, 1, false},
        {"Mercredi", std::nullopt, 0, true},
        {"Mercredi", 60, 1, true, true},
        {"Mercredi", std::nullopt, 1, false, false, "2025-01-01"},
        {"Mercredi", std::nullopt, 1, true, false, "2024-12-25"},
    };
    const QString reminder =
        u"Rappel de sauvegarde|C’est mercredi : pensez à faire une sauvegarde manuelle de vos "
        u"fiches.|info|Sauvegarder maintenant,Plus tard"_s;
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.day << " " << c.backupAge.value_or(-1) << " " << c.answer);
        m_clock.set(wednesday);
        m_settings.setBackupReminderDay(QString::fromUtf8(c.day));
        m_settings.setValue(Settings::Key::lastBackupReminderDate, QString::fromUtf8(c.remindedOn));
        open(threeRecords(), false);
        m_settings.setWarnOldBackup(false);
        m_store->setBackupHistory({});
        if (c.backupAge) {
            m_clock.set(Timestamp{wednesday.seconds - *c.backupAge});
            m_store->setLastBackupDate(m_clock.now());
            m_store->addBackupLog(
                c.automatic ? QDir(m_store->autoBackupsFolderURL()).filePath(u"AutoBackup-1.fivabackup"_s)
                            : m_store->attachmentsFolderURL() + u"/export.fivabackup"_s);
            m_clock.set(wednesday);
        }
        m_dialogs.alerts.clear();
        m_dialogs.alertAnswers = {AlertAnswer{c.answer, {}}};
        m_dialogs.holdPanels = true;
        m_view->show();
        QCoreApplication::processEvents();
        EXPECT_EQ(alertTexts(m_dialogs), c.reminds ? QStringList{reminder} : QStringList());
        EXPECT_EQ(m_dialogs.savePanels.size(), c.reminds && c.answer == 0 ? 1u : 0u)
            << "the first button starts the backup export";
        m_dialogs.finishSavePanel(std::nullopt);
        m_dialogs.holdPanels = false;
        m_dialogs.savePanels.clear();
        showAgain(m_view.get());
        EXPECT_EQ(alertTexts(m_dialogs).size(), c.reminds ? 1 : 0) << "once per window";
        open(threeRecords(), false);
        m_view->show();
        QCoreApplication::processEvents();
        EXPECT_EQ(alertTexts(m_dialogs).size(), c.reminds ? 1 : 0) << "once per day, across runs";
    }
}

// Records as "category|title|path", in order.
QStringList recordLines(const QList<LinkItem> &items)
{
    QStringList lines;
    for (const LinkItem &item : items)
        lines << item.category + u'|' + item.title + u'|' + item.path;
    return lines;
}

TEST_F(ContentViewTest, BookmarkImportPreviewsThenSavesWhatIsNewOnDiskAndExportReadsBack)
{
    const QString firefox = qEnvironmentVariable("FIVA_TEST_DATA") + u"/bookmarks/firefox-export.html"_s;
    const QString notBookmarks = m_as.filePath(u"notes.html"_s);
    writeBytes(notBookmarks, "<html><body>Bonjour</body></html>");
    struct Case
    {
        const char *name;
        std::optional<QString> chosen;
        bool keepRoots;
        bool outsideSave;   // another process saves one of the file's links before "Importer"
        const char *button; // pressed in the preview; empty when none is expected
        QString alert;
    };
    const Case cases[] = {
        {"import", firefox, false, false, "Importer", {}},
        {"keep roots", firefox, true, false, "Importer", {}},
        {"link saved meanwhile is a duplicate", firefox, false, true, "Importer", {}},
        {"cancelled in the preview", firefox, false, false, "Annuler", {}},
        {"panel cancelled", std::nullopt, false, false, "", {}},
        {"not a bookmark file", notBookmarks, false, false, "",
         u"Import impossible|notes.html : Ce fichier n’est pas un fichier de marque-pages exporté par un "
         u"navigateur.|warning|OK"_s},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        open();
        const SavedData before = onDisk();
        m_dialogs.alerts.clear();
        m_dialogs.openChoices = {c.chosen ? std::optional(QStringList{*c.chosen}) : std::nullopt};
        m_view->importBookmarksAction()->trigger();
        auto *sheet = m_view->findChild<BookmarkImportDialog *>();
        EXPECT_EQ(alertTexts(m_dialogs).join(u'\n'), c.alert);
        if (!*c.button) {
            EXPECT_EQ(sheet, nullptr);
            EXPECT_EQ(onDisk(), before);
            continue;
        }
        ASSERT_NE(sheet, nullptr);
        if (c.keepRoots)
            QTest::keyClick(child<QCheckBox>(sheet, u"keepRoots"_s), Qt::Key_Space);
        // What the library makes of the file for the store as it was: the preview must say so.
        interchange::ImportContext context = interchange::importContextFor(before.items, before.categories);
        const interchange::ImportPlan expected =
            interchange::planBookmarkImport(readBytes(*c.chosen), context, {c.keepRoots, false});
        ASSERT_GT(expected.records.size(), 1);
        const QString summary = child<QLabel>(sheet, u"importSummary"_s)->text();
        EXPECT_TRUE(summary.startsWith(
            u"Fiches à importer : %1\nNouvelles catégories : %2 ("_s.arg(expected.records.size())
                .arg(expected.newCategories.size())))
            << summary.toStdString();
        EXPECT_TRUE(summary.contains(u"Doublons ignorés : %1\n"_s.arg(expected.duplicatesSkipped)));
        LinkItem outside = makeItem({u"Dehors"_s, expected.records.first().path});
        if (c.outsideSave) {
            ASSERT_FALSE(fileio::writeDocument(dataFile(), SavedData{before.items + QList{outside},
                                                                     before.categories, std::nullopt})
                             .has_value());
        }
        click(buttonWithText(sheet, QString::fromUtf8(c.button)));
        flushDeletions();
        EXPECT_EQ(m_view->findChild<BookmarkImportDialog *>(), nullptr);

        QList<LinkItem> items = before.items;
        QStringList categories = before.categories;
        if (c.outsideSave)
            items << outside;
        if (QByteArray(c.button) == "Importer") {
            items += c.outsideSave ? expected.records.mid(1) : expected.records;
            categories += expected.newCategories;
            std::sort(categories.begin(), categories.end(), [](const QString &a, const QString &b) {
                return QString::localeAwareCompare(a, b) < 0;
            });
        }
        const SavedData after = onDisk();
        EXPECT_EQ(after.categories, categories);
        EXPECT_EQ(recordLines(after.items), recordLines(items));
        EXPECT_EQ(m_store->items(), after.items);
    }

    // Export: the records come back from the written file, each with its category.
    open();
    const QString exported = m_as.filePath(u"favoris.html"_s);
    m_dialogs.alerts.clear();
    m_dialogs.saveChoices = {exported};
    m_view->exportBookmarksAction()->trigger();
    EXPECT_EQ(alertTexts(m_dialogs),
              QStringList{u"Favoris exportés|3 fiches écrites dans « favoris.html ».|info|OK"_s});
    const interchange::ImportPlan back =
        interchange::planBookmarkImport(readBytes(exported), {}, {true, true});
    QStringList written = recordLines(back.records), stored = recordLines(m_store->items());
    written.sort();
    stored.sort();
    EXPECT_EQ(written, stored);
}

// Dragged data as browsers and file managers give it: URLs, the page titles beside them, or text.
std::unique_ptr<QMimeData> dragged(const QStringList &urls, const QString &mozUrl = {},
                                   const QString &text = {}, const QString &netscapeUrl = {})
{
    auto data = std::make_unique<QMimeData>();
    QList<QUrl> list;
    for (const QString &url : urls)
        list << QUrl(url);
    if (!list.isEmpty())
        data->setUrls(list);
    if (!mozUrl.isEmpty())
        data->setData(u"text/x-moz-url"_s,
                      QByteArray(reinterpret_cast<const char *>(mozUrl.utf16()), mozUrl.size() * 2));
    if (!text.isEmpty())
        data->setText(text);
    if (!netscapeUrl.isEmpty())
        data->setData(u"_NETSCAPE_URL"_s, netscapeUrl.toUtf8());
    return data;
}

// Drag enter, then drop, on `target`, as the desktop delivers them; whether the drop was taken.
bool drop(QWidget *target, const QMimeData &data)
{
    const QPoint at = target->rect().center();
    QDragEnterEvent enter(at, Qt::CopyAction, &data, Qt::LeftButton, {});
    QCoreApplication::sendEvent(target, &enter);
    QDropEvent dropped(QPointF(at), Qt::CopyAction, &data, Qt::LeftButton, {});
    QCoreApplication::sendEvent(target, &dropped);
    QCoreApplication::processEvents();
    return enter.isAccepted() && dropped.isAccepted();
}

TEST_F(ContentViewTest, DroppedOrPastedLinksFillTheFormOrAfterOneConfirmationBecomeRecords)
{
    const QString folder = m_as.filePath(u"Dossier été"_s);
    const QString file = folder + u"/Devis n°1.pdf"_s;
    writeBytes(file, "%PDF");
    const QString fileUrl = QUrl::fromLocalFile(file).toString();
    struct Case
    {
        const char *name;
        std::shared_ptr<QMimeData> data;
        bool paste;    // Ctrl+V on the list with this in the clipboard, else a drop
        int answer;    // to the confirmation of several
        QString links; // what the data gives, "title|path|kind" joined by ";" (%1 the folder)
    };
    const Case cases[] = {
        {"address with its page title",
         dragged({u"https://example.org/a"_s}, u"https://example.org/a\nPage « A »"_s), false, 0,
         u"Page « A »|https://example.org/a|0"_s},
        {"title the old way",
         dragged({u"https://example.org/d"_s}, {}, {}, u"https://example.org/d\r\nPage D"_s), false, 0,
         u"Page D|https://example.org/d|0"_s},
        {"address alone, twice, pasted", dragged({u"https://example.org/b"_s, u"https://example.org/b"_s}),
         true, 0, u"https://example.org/b|https://example.org/b|0"_s},
        {"folder as text", dragged({}, {}, folder), true, 0, u"Dossier été|%1|2"_s},
        {"file and folder confirmed", dragged({fileUrl, QUrl::fromLocalFile(folder).toString()}), false, 0,
         u"Devis n°1.pdf|%1/Devis n°1.pdf|1;Dossier été|%1|2"_s},
        {"text lines refused", dragged({}, {}, u" https://example.org/c \nbonjour\n"_s + file), true, 1,
         u"https://example.org/c|https://example.org/c|0;Devis n°1.pdf|%1/Devis n°1.pdf|1"_s},
        {"missing file and script",
         dragged({QUrl::fromLocalFile(folder + u"/absent"_s).toString(), u"javascript:alert(1)"_s}),
         false,
         0,
         {}},
        {"plain words", dragged({}, {}, u"bonjour tout le monde"_s), true, 0, {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const QList<DroppedLink> links = droppedLinks(*c.data);
        QStringList given;
        for (const DroppedLink &l : links)
            given << l.title + u'|' + l.path + u'|' + QString::number(int(l.kind));
        EXPECT_EQ(given.join(u';'), c.links.arg(folder));

        open();
        m_dialogs.alerts.clear();
        m_dialogs.alertAnswers = {AlertAnswer{c.answer, {}}};
        if (c.paste) {
            auto *copy = new QMimeData;
            for (const QString &format : c.data->formats())
                copy->setData(format, c.data->data(format));
            QGuiApplication::clipboard()->setMimeData(copy);
            QTest::keyClick(m_view->list(), Qt::Key_V, Qt::ControlModifier);
        } else {
            EXPECT_EQ(drop(m_view->list()->viewport(), *c.data), !links.isEmpty());
        }
        // One link: the new-record form, filled with it and nothing saved yet.
        EditLinkView *form = m_view->editSheet();
        ASSERT_EQ(form != nullptr, links.size() == 1);
        if (form) {
            EXPECT_EQ(child<QLineEdit>(form, u"title"_s)->text() + u'|' +
                          child<QLineEdit>(form, u"path"_s)->text() + u'|' +
                          QString::number(int(form->linkType())),
                      given.first());
            form->reject();
        }
        // Several: one confirmation listing them, then one record each in the form's default category.
        QStringList expectedAlerts;
        if (links.size() > 1) {
            QStringList lines;
            for (const DroppedLink &l : links)
                lines << u"• "_s + l.title + u" — "_s + l.path;
            expectedAlerts << u"Ajouter %1 fiches ?|"_s.arg(links.size()) + lines.join(u'\n') +
                                  u"|info|Ajouter,Annuler"_s;
        }
        EXPECT_EQ(alertTexts(m_dialogs), expectedAlerts);
        const qsizetype added = links.size() > 1 && c.answer == 0 ? links.size() : 0;
        const SavedData after = onDisk();
        ASSERT_EQ(after.items.size(), 3 + added);
        for (qsizetype i = 0; i < added; ++i) {
            const LinkItem &item = after.items[3 + i];
            EXPECT_EQ(item.title + u'|' + item.path + u'|' + QString::number(int(item.kind)) + u'|' +
                          item.category,
                      given[i] + u"|Administratif"_s);
        }
        flushDeletions();
    }
}

TEST_F(ContentViewTest, FilesDroppedOnTheDetailAreCopiedAndAttached)
{
    const QString first = m_as.filePath(u"in/facture.pdf"_s);
    const QString second = m_as.filePath(u"in/other/facture.pdf"_s);
    writeBytes(first, "un");
    writeBytes(second, "deux");
    open();
    clickRow(m_view->list(), rowOf(u"Facture"_s));
    ASSERT_NE(m_view->detailView(), nullptr);
    // Two files of the same name and a folder: the folder is left out, the second copy renamed.
    const auto data = dragged({QUrl::fromLocalFile(first).toString(), QUrl::fromLocalFile(second).toString(),
                               QUrl::fromLocalFile(m_as.filePath(u"in"_s)).toString()});
    EXPECT_TRUE(drop(m_view->detailView(), *data));
    const LinkItem record = onDisk().items.at(2);
    QStringList attached;
    for (const Attachment &a : record.attachments)
        attached << a.fileName + u'=' + QString::fromUtf8(readBytes(a.filePath));
    EXPECT_EQ(attached, (QStringList{u"facture.pdf=un"_s, u"facture-1.pdf=deux"_s}));
    EXPECT_TRUE(QFile::exists(first) && QFile::exists(second)) << "the dropped files stay where they were";
    EXPECT_FALSE(drop(m_view->detailView(), *dragged({u"https://example.org/x"_s})));
}

} // namespace
