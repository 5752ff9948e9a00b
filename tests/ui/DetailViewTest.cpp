#include "ui/main/DetailView.h"

#include "store/StoredNotes.h"
#include "ui/main/AttachmentPreviewWindow.h"

#include <QDateTime>
#include <QDir>
#include <QImage>
#include <QLocale>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextDocument>

#include <algorithm>

#include "support/ScreenTest.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

// Every run of the document as "text|family|size|bold|italic", from the font the document draws
// it with: relative sizes (headings, <big>, <font size>) are applied only there.
QStringList runsOf(const QTextDocument &document)
{
    QStringList runs;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QFont f = it.fragment().charFormat().font();
            runs << QStringList{it.fragment().text(), f.families().value(0), QString::number(f.pointSizeF()),
                                f.bold() ? u"bold"_s : u""_s, f.italic() ? u"italic"_s : u""_s}
                        .join(u'|');
        }
    }
    return runs;
}

class DetailViewTest : public ScreenTest
{
protected:
    ~DetailViewTest() override
    {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (qobject_cast<AttachmentPreviewWindow *>(widget))
                delete widget;
        }
    }

    // The view of `item`, the first of the store's records.
    void open(const LinkItem &item, const QList<LinkItem> &others = {})
    {
        m_view.reset();
        m_store = startWith(QList<LinkItem>{item} + others, {u"A"_s});
        m_view = std::make_unique<DetailView>(*m_store, m_dialogs, m_workspace, m_settings, item);
        m_view->setOnClose([this] { ++m_closed; });
        m_view->setOnEdit([this](const LinkItem &edited) { m_edited.push_back(edited); });
        m_view->show();
    }
    QString label(const QString &name) { return child<QLabel>(m_view.get(), name)->text(); }
    void clickButton(const QString &text) { click(buttonWithText(m_view.get(), text)); }
    // The rows are rebuilt after every change, so they are looked up afresh each time.
    QWidget *rows() { return child<QWidget>(m_view.get(), u"attachments"_s); }
    void clickRowButton(const QString &name, int row)
    {
        click(rows()->findChildren<QPushButton *>(name).value(row));
    }
    QString attachmentNames()
    {
        QStringList names;
        for (QLabel *name : rows()->findChildren<QLabel *>(u"attachmentName"_s))
            names.append(name->text());
        return names.join(u'|');
    }
    QString sourceFile(const QString &name, const QByteArray &bytes = "contenu")
    {
        const QString path = m_sources.filePath(name);
        writeBytes(path, bytes);
        return path;
    }
    static Attachment attachment(const QString &path)
    {
        return {QUuid::createUuid(), QFileInfo(path).fileName(), path};
    }

    QTemporaryDir m_sources;
    std::unique_ptr<LinkStore> m_store;
    std::unique_ptr<DetailView> m_view;
    int m_closed = 0;
    std::vector<LinkItem> m_edited;
};

TEST_F(DetailViewTest, ShowsEveryFieldFollowsTheStoreAndFallsBackToItsCopy)
{
    LinkItem item = makeItem({.title = u"Avant"_s, .category = u"Travail"_s, .isFavorite = true});
    item.createdAt =
        Timestamp::fromUnix(double(QDateTime(QDate(2020, 5, 7), QTime(21, 46, 32)).toSecsSinceEpoch()));
    // The tests run in the C locale, which names no language: the date is shown the French way.
    ASSERT_EQ(QLocale().language(), QLocale::C);
    open(item);
    const QString created = u"07/05/2020 21:46"_s;
    EXPECT_EQ((QStringList{label(u"title"_s), label(u"path"_s), label(u"kind"_s), label(u"category"_s),
                           child<QLabel>(m_view.get(), u"favorite"_s)->toolTip(), label(u"createdAt"_s)}),
              (QStringList{u"Avant"_s, item.path, u"Lien Internet"_s, u"Travail"_s, u"Favori"_s, created}));
    EXPECT_EQ(notShown(m_view.get(),
                       {u"Lien :"_s, u"Type :"_s, u"Catégorie :"_s, u"Favori :"_s, u"Créé le :"_s, u"Notes"_s,
                        u"Pièces jointes"_s, u"Aucune note"_s, u"Aucune pièce jointe"_s, u"Ouvrir"_s,
                        u"Ajouter une pièce jointe…"_s, u"Modifier"_s, u"Supprimer"_s, u"Fermer"_s}),
              QStringList());
    EXPECT_FALSE(child<QTextBrowser>(m_view.get(), u"notes"_s)->isVisible());

    // Notes saved empty show an empty box rather than "Aucune note".
    m_store->updateItem(item.id, [](LinkItem &stored) {
        stored.title = u"Après"_s;
        stored.notes = notesHTML(QString());
    });
    EXPECT_EQ(label(u"title"_s), u"Après"_s);
    EXPECT_TRUE(child<QTextBrowser>(m_view.get(), u"notes"_s)->isVisible());
    EXPECT_EQ(notShown(m_view.get(), {u"Aucune note"_s}), QStringList{u"Aucune note"_s});
    clickButton(u"Modifier"_s);
    ASSERT_EQ(m_edited.size(), 1u);
    EXPECT_EQ(m_edited[0].title, u"Après"_s);
    m_store->setItems({});
    EXPECT_EQ(label(u"title"_s), u"Avant"_s);
}

TEST_F(DetailViewTest, NotesFontFollowsPreferencesOnTheNextRender)
{
    const LinkItem item = makeItem({.title = u"f"_s, .notes = notesHTML(u"texte"_s)});
    open(item);
    const auto firstRun = [this] {
        return runsOf(*child<QTextBrowser>(m_view.get(), u"notes"_s)->document()).value(0);
    };
    EXPECT_EQ(firstRun(), u"texte |Helvetica|16||"_s);
    m_settings.setNoteFontName(u"Georgia"_s);
    m_settings.setNoteFontSize(24);
    // The view does not watch the settings: nothing changes until it renders again.
    EXPECT_EQ(firstRun(), u"texte |Helvetica|16||"_s);
    m_view->refresh();
    EXPECT_EQ(firstRun(), u"texte |Georgia|24||"_s);
    m_settings.setNoteFontSize(0);
    m_store->updateItem(item.id, [](LinkItem &stored) { stored.notes = notesHTML(u"autre"_s); });
    EXPECT_EQ(firstRun(), u"autre |Georgia|16||"_s);
}

TEST_F(DetailViewTest, OpenOpensByKindAndOnlyWellFormedAddresses)
{
    // Kind, location, then the button's text and what it asked of the desktop.
    const std::tuple<LinkKind, QString, QString> cases[]{
        {LinkKind::url, u"https://example.org/a?b=c"_s, u"Ouvrir → openUrl https://example.org/a?b=c"_s},
        {LinkKind::url, u"http://exa mple.org"_s, u"Ouvrir → "_s},
        {LinkKind::url, u"%zz"_s, u"Ouvrir → "_s},
        {LinkKind::file, u"/home/moi/a b.pdf"_s, u"Ouvrir → openPath /home/moi/a b.pdf"_s},
        {LinkKind::directory, u"/srv"_s, u"Ouvrir dans le Finder → showFolder /srv"_s}};
    for (const auto &[kind, path, expected] : cases) {
        LinkItem item = makeItem(u"f"_s, u"A"_s);
        item.kind = kind;
        item.path = path;
        open(item);
        m_workspace.calls.clear();
        auto *button = child<QPushButton>(m_view.get(), u"openLink"_s);
        QTest::mouseClick(button, Qt::LeftButton);
        const QStringList calls(m_workspace.calls.begin(), m_workspace.calls.end());
        EXPECT_EQ(QString(button->text() + u" → "_s + calls.join(u';')), expected);
    }
}

TEST_F(DetailViewTest, AttachedCopiesCountUpTheirNamesAndACancelledOrFailedCopyRecordsNothing)
{
    open(makeItem(u"f"_s, u"A"_s));
    const QString report = sourceFile(u"rapport.pdf"_s, "pdf bytes");
    const QString notes = sourceFile(u"notes"_s, "plain");
    const QByteArray before = readBytes(dataFile());
    m_dialogs.openChoices = {std::nullopt, QStringList{m_sources.filePath(u"absent.txt"_s)}};
    const QString printed = printedBy([this] {
        clickButton(u"Ajouter une pièce jointe…"_s);
        clickButton(u"Ajouter une pièce jointe…"_s);
    });
    EXPECT_TRUE(printed.startsWith(u"Erreur copie fichier : "_s)) << printed.toStdString();
    EXPECT_TRUE(m_store->items().first().attachments.isEmpty());
    EXPECT_EQ(readBytes(dataFile()), before);

    for (const QString &source : {report, report, notes}) {
        m_dialogs.openChoices.push_back(QStringList{source});
        clickButton(u"Ajouter une pièce jointe…"_s);
    }
    EXPECT_EQ(attachmentNames(), u"rapport.pdf|rapport-1.pdf|notes"_s);
    QStringList stored;
    for (const Attachment &copy : m_store->items().first().attachments)
        stored << copy.fileName + u'|' + QDir(m_as.path()).relativeFilePath(copy.filePath) + u'|' +
                      QString::fromUtf8(readBytes(copy.filePath));
    EXPECT_EQ(stored, (QStringList{u"rapport.pdf|Fiva_Attachments/rapport.pdf|pdf bytes"_s,
                                   u"rapport-1.pdf|Fiva_Attachments/rapport-1.pdf|pdf bytes"_s,
                                   u"notes|Fiva_Attachments/notes|plain"_s}));
    EXPECT_EQ(onDisk().items, m_store->items());
    EXPECT_EQ(m_dialogs.openPanels.front(),
              (OpenPanelRequest{OpenPanelRequest::Kind::files, {}, false, u"Choisir"_s}));
}

TEST_F(DetailViewTest, AttachmentRowsOpenOrSayTheFileIsGoneAndDeletionsAskFirst)
{
    const QString kept = sourceFile(u"garde.txt"_s);
    const QString doomed = sourceFile(u"jeter.txt"_s);
    const Attachment keptCopy = attachment(kept);
    const LinkItem other = makeItem(u"g"_s, u"A"_s);
    open(makeItem(u"f"_s, u"A"_s,
                  {keptCopy, attachment(doomed), attachment(m_sources.filePath(u"fantome.txt"_s))}),
         {other});
    clickRowButton(u"openAttachment"_s, 0);
    EXPECT_EQ(m_workspace.calls, std::vector<QString>{u"openPath "_s + kept});
    EXPECT_TRUE(m_dialogs.alerts.empty());
    clickRowButton(u"openAttachment"_s, 2);
    EXPECT_EQ(alertTexts(m_dialogs),
              QStringList{u"Fichier introuvable|La pièce jointe «fantome.txt» n’existe plus.|warning|OK"_s});
    EXPECT_EQ(m_workspace.calls.size(), 1u);

    m_dialogs.alerts.clear();
    m_dialogs.alertAnswers = {{1, {}}};
    clickRowButton(u"deleteAttachment"_s, 1);
    EXPECT_TRUE(QFileInfo::exists(doomed));
    EXPECT_EQ(m_store->items().first().attachments.size(), 3);
    clickRowButton(u"deleteAttachment"_s, 1);
    EXPECT_FALSE(QFileInfo::exists(doomed));
    EXPECT_TRUE(QFileInfo::exists(kept));
    // The entry of a file already gone goes too.
    clickRowButton(u"deleteAttachment"_s, 1);
    EXPECT_EQ(attachmentNames(), u"garde.txt"_s);
    EXPECT_EQ(m_store->items().first().attachments, QList<Attachment>{keptCopy});
    EXPECT_EQ(onDisk().items, m_store->items());
    EXPECT_EQ(alertTexts(m_dialogs),
              QStringList(3,
                          u"Supprimer cette pièce jointe ?|Le fichier sera placé dans la corbeille.|warning|"
                          u"Supprimer,Annuler"_s));

    // The record itself; deleteItem takes its files and saves.
    m_dialogs.alertAnswers = {{1, {}}};
    clickButton(u"Supprimer"_s);
    EXPECT_EQ(m_store->items().size(), 2);
    EXPECT_EQ(m_closed, 0);
    clickButton(u"Supprimer"_s);
    EXPECT_EQ(alertTexts(m_dialogs).last(),
              u"Supprimer cette fiche ?|Cette action est irréversible.|warning|Supprimer,Annuler"_s);
    EXPECT_EQ(m_store->items(), QList<LinkItem>{other});
    EXPECT_EQ(m_closed, 1);
    clickButton(u"Fermer"_s);
    EXPECT_EQ(m_closed, 2);
}

TEST_F(DetailViewTest, PreviewOpensAWindowPerTypeTitledWithTheNameOrOnlyPrintsForAMissingPath)
{
    using Kind = AttachmentPreviewWindow::PreviewKind;
    const QString png = m_sources.filePath(u"image.png"_s);
    QImage image(40, 30, QImage::Format_RGB32);
    image.fill(Qt::red);
    ASSERT_TRUE(image.save(png));
    const QString pdf = m_sources.filePath(u"doc.pdf"_s);
    writePdf(pdf, u"Bonjour"_s);
    const QString other = sourceFile(u"donnees.bin"_s, QByteArray("\x00\x01\x02\xff", 4));
    std::vector<std::pair<QString, Kind>> cases{
        {png, Kind::image},
        {pdf, Kind::pdf},
        {sourceFile(u"page.html"_s, "<html><body><p>Salut</p></body></html>"), Kind::html},
        {sourceFile(u"lisez-moi.txt"_s, "du texte"), Kind::text},
        {other, Kind::other},
        {sourceFile(u"faux.png"_s, "pas une image"), Kind::other},
        // Something exists there, so it is shown, by its summary, whatever its name says.
        {m_sources.filePath(u"dossier.txt"_s), Kind::other}};
    ASSERT_TRUE(QDir().mkpath(cases.back().first));
    const QString missing = m_sources.filePath(u"absent.png"_s);
    QList<Attachment> list{attachment(missing)};
    for (const auto &[path, kind] : cases)
        list.append(attachment(path));
    open(makeItem(u"f"_s, u"A"_s, list));

    EXPECT_EQ(printedBy([this] { clickRowButton(u"previewAttachment"_s, 0); }),
              u"🔥 Fonction previewAttachment LANCÉE !\n📄 Aperçu fichier : "_s + missing +
                  u"\n⛔️ FICHIER ABSENT sur le disque !\n"_s);
    EXPECT_TRUE(visibleWindows<AttachmentPreviewWindow>().isEmpty());
    EXPECT_TRUE(m_dialogs.alerts.empty());

    printedBy([&] {
        for (int row = 1; row <= int(cases.size()); ++row)
            clickRowButton(u"previewAttachment"_s, row);
    });
    // One window for each, titled with the file's name.
    std::vector<std::pair<QString, Kind>> opened;
    AttachmentPreviewWindow *summary = nullptr;
    for (AttachmentPreviewWindow *window : visibleWindows<AttachmentPreviewWindow>()) {
        EXPECT_EQ(window->windowTitle(), QFileInfo(window->path()).fileName());
        opened.emplace_back(window->path(), window->previewKind());
        if (window->path() == other)
            summary = window;
    }
    std::sort(opened.begin(), opened.end());
    std::sort(cases.begin(), cases.end());
    EXPECT_EQ(opened, cases);
    ASSERT_NE(summary, nullptr);
    EXPECT_TRUE(showsLabel(summary, u"donnees.bin"_s));
    QTest::mouseClick(child<QPushButton>(summary, u"openFile"_s), Qt::LeftButton);
    EXPECT_EQ(m_workspace.calls, std::vector<QString>{u"openPath "_s + other});
}

TEST(DetailView, RenderedNotesTakeTheNotesFontKeepBoldAndItalicAndNeedAUtf8Form)
{
    ensureWidgetsApplication();
    const auto document = DetailView::renderNotes(
        notesHTML(u"a <b>gras</b> <i>penché</i> <b><i>les deux</i></b> <span style=\"font-family:Arial; "
                  "font-size:40pt\">z</span>"_s),
        u"Courier New"_s, 20);
    ASSERT_NE(document, nullptr);
    // The span's own family and size give way too, so it joins the run around it.
    EXPECT_EQ(runsOf(*document),
              (QStringList{u"a |Courier New|20||"_s, u"gras|Courier New|20|bold|"_s, u" |Courier New|20||"_s,
                           u"penché|Courier New|20||italic"_s, u" |Courier New|20||"_s,
                           u"les deux|Courier New|20|bold|italic"_s, u" z |Courier New|20||"_s}));

    // Markup that changes the size in HTML keeps only its weight and slant.
    const struct
    {
        const char *html;
        const char *style; // "bold|italic" of every run that is not blank
    } sized[] = {
        {"<h1>titre</h1>", "bold|"},
        {"<font size=7>sept</font>", "|"},
        {"<big>grand</big>", "|"},
        {"<small>petit</small>", "|"},
        {"<h3><i>sous-titre</i></h3>", "bold|italic"},
        {"<span style=\"font-size:30px\">px</span>", "|"},
        {"<span style=\"font-size:xx-large\"><b>xx</b></span>", "bold|"},
    };
    for (const auto &row : sized) {
        SCOPED_TRACE(row.html);
        const auto sizedDocument =
            DetailView::renderNotes(notesHTML(QString::fromUtf8(row.html)), u"Courier New"_s, 16);
        ASSERT_NE(sizedDocument, nullptr);
        const QStringList runs = runsOf(*sizedDocument);
        ASSERT_FALSE(runs.isEmpty());
        for (const QString &run : runs) {
            EXPECT_EQ(run.section(u'|', 1, 2), u"Courier New|16"_s) << run.toStdString();
            if (!run.section(u'|', 0, 0).trimmed().isEmpty()) {
                EXPECT_EQ(run.section(u'|', 3), QLatin1String(row.style)) << run.toStdString();
            }
        }
    }

    QString broken = u"abc"_s;
    broken.append(QChar(0xD800));
    EXPECT_EQ(DetailView::renderNotes(broken, u"Helvetica"_s, 16), nullptr);
    EXPECT_NE(DetailView::renderNotes(u"pas du HTML <<<"_s, u"Helvetica"_s, 16), nullptr);
}

} // namespace
