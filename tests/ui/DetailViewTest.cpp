#include "ui/main/DetailView.h"

#include "store/StoredNotes.h"
#include "ui/main/AttachmentPreviewWindow.h"

#include <QImage>
#include <QPainter>
#include <QPdfWriter>
#include <QPushButton>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextDocument>

#include "ScreensTestSupport.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

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

    std::unique_ptr<DetailView> openDetail(LinkStore &store, const LinkItem &item)
    {
        auto view = std::make_unique<DetailView>(store, m_dialogs, m_workspace, m_settings, item);
        view->setOnClose([this] { ++m_closed; });
        view->setOnEdit([this](const LinkItem &edited) { m_edited.push_back(edited); });
        view->show();
        return view;
    }
    // The rows are rebuilt after every change, so buttons are looked up afresh each time.
    static QPushButton *rowButton(DetailView &view, const QString &name, int row)
    {
        auto *rows = view.findChild<QWidget *>(u"attachments"_s);
        if (!rows)
            return nullptr;
        const auto buttons = rows->findChildren<QPushButton *>(name);
        return row < buttons.size() ? buttons[row] : nullptr;
    }
    static QStringList attachmentNames(DetailView &view)
    {
        QStringList names;
        auto *rows = view.findChild<QWidget *>(u"attachments"_s);
        for (QLabel *label : rows->findChildren<QLabel *>(u"attachmentName"_s))
            names.append(label->text());
        return names;
    }
    QString attachments(const QString &name = {}) const
    {
        const QString folder = m_as.filePath(u"Fiva_Attachments"_s);
        return name.isEmpty() ? folder : folder + u'/' + name;
    }
    QString sourceFile(const QString &name, const QByteArray &bytes = "contenu")
    {
        const QString path = m_sources.filePath(name);
        writeBytes(path, bytes);
        return path;
    }
    static QList<AttachmentPreviewWindow *> previewWindows()
    {
        QList<AttachmentPreviewWindow *> windows;
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (auto *window = qobject_cast<AttachmentPreviewWindow *>(widget))
                windows.append(window);
        }
        return windows;
    }

    QTemporaryDir m_sources;
    QTemporaryDir m_settingsDir;
    Settings m_settings{m_settingsDir.filePath(u"Fiva.ini"_s)};
    int m_closed = 0;
    std::vector<LinkItem> m_edited;
};

TEST_F(DetailViewTest, ShowsEveryFieldAndTheEmptyStates)
{
    LinkItem item = makeItem(u"Ma fiche"_s, u"Travail"_s);
    item.isFavorite = true;
    auto store = startWith({item}, {u"Travail"_s});
    auto view = openDetail(*store, item);
    EXPECT_EQ(child<QLabel>(view.get(), u"title"_s)->text(), u"Ma fiche"_s);
    EXPECT_EQ(child<QLabel>(view.get(), u"path"_s)->text(), item.path);
    EXPECT_EQ(child<QLabel>(view.get(), u"kind"_s)->text(), u"Lien Internet"_s);
    EXPECT_EQ(child<QLabel>(view.get(), u"category"_s)->text(), u"Travail"_s);
    EXPECT_EQ(child<QLabel>(view.get(), u"favorite"_s)->toolTip(), u"star.fill"_s);
    EXPECT_FALSE(child<QLabel>(view.get(), u"createdAt"_s)->text().isEmpty());
    for (const QString &label : {u"Lien :"_s, u"Type :"_s, u"Catégorie :"_s, u"Favori :"_s, u"Créé le :"_s,
                                 u"Notes"_s, u"Pièces jointes"_s, u"Aucune note"_s, u"Aucune pièce jointe"_s})
        EXPECT_TRUE(showsLabel(view.get(), label)) << label.toStdString();
    EXPECT_FALSE(child<QTextBrowser>(view.get(), u"notes"_s)->isVisible());
    EXPECT_EQ(child<QPushButton>(view.get(), u"openLink"_s)->text(), u"Ouvrir"_s);
    EXPECT_NE(buttonWithText(view.get(), u"Ajouter une pièce jointe…"_s), nullptr);
    EXPECT_NE(buttonWithText(view.get(), u"Modifier"_s), nullptr);
    EXPECT_NE(buttonWithText(view.get(), u"Supprimer"_s), nullptr);
    EXPECT_NE(buttonWithText(view.get(), u"Fermer"_s), nullptr);
}

TEST_F(DetailViewTest, NotesSavedEmptyShowAnEmptyBoxNotAucuneNote)
{
    LinkItem item = makeItem(u"f"_s, u"A"_s);
    item.notes = notesHTML(QString());
    auto store = startWith({item}, {u"A"_s});
    auto view = openDetail(*store, item);
    EXPECT_TRUE(child<QTextBrowser>(view.get(), u"notes"_s)->isVisible());
    EXPECT_FALSE(showsLabel(view.get(), u"Aucune note"_s));
}

TEST_F(DetailViewTest, FollowsTheStoreAndFallsBackToItsCopy)
{
    LinkItem item = makeItem(u"Avant"_s, u"A"_s);
    auto store = startWith({item}, {u"A"_s});
    auto view = openDetail(*store, item);
    store->updateItem(item.id, [](LinkItem &stored) { stored.title = u"Après"_s; });
    EXPECT_EQ(child<QLabel>(view.get(), u"title"_s)->text(), u"Après"_s);
    QTest::mouseClick(buttonWithText(view.get(), u"Modifier"_s), Qt::LeftButton);
    ASSERT_EQ(m_edited.size(), 1u);
    EXPECT_EQ(m_edited[0].title, u"Après"_s);
    store->setItems({});
    EXPECT_EQ(child<QLabel>(view.get(), u"title"_s)->text(), u"Avant"_s);
}

struct OpenLinkCase
{
    LinkKind kind;
    QString path;
    QString button;
    std::vector<QString> calls;
};

class OpenLinkTest : public DetailViewTest, public ::testing::WithParamInterface<OpenLinkCase>
{
};

TEST_P(OpenLinkTest, OpensByKind)
{
    const OpenLinkCase &c = GetParam();
    LinkItem item = makeItem(u"f"_s, u"A"_s);
    item.kind = c.kind;
    item.path = c.path;
    auto store = startWith({item}, {u"A"_s});
    auto view = openDetail(*store, item);
    auto *open = child<QPushButton>(view.get(), u"openLink"_s);
    EXPECT_EQ(open->text(), c.button);
    QTest::mouseClick(open, Qt::LeftButton);
    EXPECT_EQ(m_workspace.calls, c.calls);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, OpenLinkTest,
    ::testing::Values(
        OpenLinkCase{LinkKind::url,
                     u"https://example.org/a?b=c"_s,
                     u"Ouvrir"_s,
                     {u"openUrl https://example.org/a?b=c"_s}},
        OpenLinkCase{LinkKind::url, u"http://exa mple.org"_s, u"Ouvrir"_s, {}},
        OpenLinkCase{LinkKind::url, u"%zz"_s, u"Ouvrir"_s, {}},
        OpenLinkCase{LinkKind::file, u"/home/moi/a b.pdf"_s, u"Ouvrir"_s, {u"openPath /home/moi/a b.pdf"_s}},
        OpenLinkCase{LinkKind::directory, u"/srv"_s, u"Ouvrir dans le Finder"_s, {u"showFolder /srv"_s}}));

TEST_F(DetailViewTest, AttachingTheSameNameCountsUpAndKeepsTheDotWithoutExtension)
{
    LinkItem item = makeItem(u"f"_s, u"A"_s);
    auto store = startWith({item}, {u"A"_s});
    auto view = openDetail(*store, item);
    const QString report = sourceFile(u"rapport.pdf"_s, "pdf bytes");
    const QString notes = sourceFile(u"notes"_s, "plain");
    for (const QString &source : {report, report, report, notes, notes}) {
        m_dialogs.openChoices.push_back(QStringList{source});
        QTest::mouseClick(buttonWithText(view.get(), u"Ajouter une pièce jointe…"_s), Qt::LeftButton);
    }
    const QStringList expected{u"rapport.pdf"_s, u"rapport-1.pdf"_s, u"rapport-2.pdf"_s, u"notes"_s,
                               u"notes-1."_s};
    EXPECT_EQ(attachmentNames(*view), expected);
    const QList<Attachment> stored = store->items().first().attachments;
    ASSERT_EQ(stored.size(), 5);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(stored[i].fileName, expected[i]);
        EXPECT_EQ(stored[i].filePath, attachments(expected[i]));
        EXPECT_EQ(readBytes(stored[i].filePath), i < 3 ? QByteArray("pdf bytes") : QByteArray("plain"));
    }
    EXPECT_EQ(onDisk().items, store->items());
    EXPECT_EQ(m_dialogs.openPanels.front().kind, OpenPanelRequest::Kind::files);
    EXPECT_FALSE(m_dialogs.openPanels.front().allowsMultipleSelection);
    EXPECT_EQ(m_dialogs.openPanels.front().confirmButtonTitle, u"Choisir");
}

TEST_F(DetailViewTest, CancelledPanelOrFailedCopyRecordsNothing)
{
    LinkItem item = makeItem(u"f"_s, u"A"_s);
    auto store = startWith({item}, {u"A"_s});
    auto view = openDetail(*store, item);
    const QByteArray before = readBytes(dataFile());
    m_dialogs.openChoices.push_back(std::nullopt);
    QTest::mouseClick(buttonWithText(view.get(), u"Ajouter une pièce jointe…"_s), Qt::LeftButton);
    m_dialogs.openChoices.push_back(QStringList{m_sources.filePath(u"absent.txt"_s)});
    StdoutCapture capture;
    QTest::mouseClick(buttonWithText(view.get(), u"Ajouter une pièce jointe…"_s), Qt::LeftButton);
    const QString printed = capture.finish();
    EXPECT_TRUE(printed.startsWith(u"Erreur copie fichier : "_s)) << printed.toStdString();
    EXPECT_TRUE(store->items().first().attachments.isEmpty());
    EXPECT_EQ(readBytes(dataFile()), before);
}

struct FreeNameCase
{
    QStringList existing;
    QString fileName;
    QString expected;
};

class FreeNameTest : public ::testing::TestWithParam<FreeNameCase>
{
};

TEST_P(FreeNameTest, NameDashCounterDotExtension)
{
    QTemporaryDir dir;
    for (const QString &name : GetParam().existing)
        writeBytes(dir.filePath(name), "x");
    EXPECT_EQ(DetailView::freeAttachmentPath(dir.path(), GetParam().fileName),
              dir.filePath(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(
    Names, FreeNameTest,
    ::testing::Values(
        FreeNameCase{{}, u"rapport.pdf"_s, u"rapport.pdf"_s},
        FreeNameCase{{u"rapport.pdf"_s}, u"rapport.pdf"_s, u"rapport-1.pdf"_s},
        FreeNameCase{{u"rapport.pdf"_s, u"rapport-1.pdf"_s}, u"rapport.pdf"_s, u"rapport-2.pdf"_s},
        FreeNameCase{{u"rapport.pdf"_s, u"rapport-2.pdf"_s}, u"rapport.pdf"_s, u"rapport-1.pdf"_s},
        FreeNameCase{{u"notes"_s}, u"notes"_s, u"notes-1."_s},
        FreeNameCase{{u"a.tar.gz"_s}, u"a.tar.gz"_s, u"a.tar-1.gz"_s},
        FreeNameCase{{u".profile"_s}, u".profile"_s, u".profile-1."_s},
        FreeNameCase{{u"été.txt"_s}, u"été.txt"_s, u"été-1.txt"_s}));

TEST_F(DetailViewTest, OpeningAMissingAttachmentSaysSo)
{
    const QString present = sourceFile(u"present.txt"_s);
    LinkItem item =
        makeItem(u"f"_s, u"A"_s,
                 {Attachment{QUuid::createUuid(), u"present.txt"_s, present},
                  Attachment{QUuid::createUuid(), u"parti.pdf"_s, m_sources.filePath(u"parti.pdf"_s)}});
    auto store = startWith({item}, {u"A"_s});
    auto view = openDetail(*store, item);
    QTest::mouseClick(rowButton(*view, u"openAttachment"_s, 0), Qt::LeftButton);
    EXPECT_EQ(m_workspace.calls, std::vector<QString>{u"openPath "_s + present});
    EXPECT_TRUE(m_dialogs.alerts.empty());
    QTest::mouseClick(rowButton(*view, u"openAttachment"_s, 1), Qt::LeftButton);
    ASSERT_EQ(m_dialogs.alerts.size(), 1u);
    EXPECT_EQ(m_dialogs.alerts[0].message, u"Fichier introuvable"_s);
    EXPECT_EQ(m_dialogs.alerts[0].informativeText, u"La pièce jointe «parti.pdf» n’existe plus."_s);
    EXPECT_EQ(m_dialogs.alerts[0].buttons, QStringList{u"OK"_s});
    EXPECT_EQ(m_workspace.calls.size(), 1u);
}

TEST_F(DetailViewTest, DeletingAnAttachmentAsksThenRemovesFileAndEntryEvenWhenFileIsGone)
{
    const QString kept = sourceFile(u"garde.txt"_s);
    const QString doomed = sourceFile(u"jeter.txt"_s);
    LinkItem item = makeItem(u"f"_s, u"A"_s,
                             {Attachment{QUuid::createUuid(), u"garde.txt"_s, kept},
                              Attachment{QUuid::createUuid(), u"jeter.txt"_s, doomed},
                              Attachment{QUuid::createUuid(), u"fantome.txt"_s, m_sources.filePath(u"x"_s)}});
    auto store = startWith({item}, {u"A"_s});
    auto view = openDetail(*store, item);

    m_dialogs.alertAnswers.push_back({1, {}});
    QTest::mouseClick(rowButton(*view, u"deleteAttachment"_s, 1), Qt::LeftButton);
    EXPECT_TRUE(QFileInfo::exists(doomed));
    EXPECT_EQ(store->items().first().attachments.size(), 3);
    const AlertRequest expected{u"Supprimer cette pièce jointe ?"_s,
                                u"Le fichier sera supprimé définitivement."_s,
                                AlertStyle::warning,
                                {u"Supprimer"_s, u"Annuler"_s},
                                std::nullopt};
    ASSERT_EQ(m_dialogs.alerts.size(), 1u);
    EXPECT_EQ(m_dialogs.alerts[0], expected);

    QTest::mouseClick(rowButton(*view, u"deleteAttachment"_s, 1), Qt::LeftButton);
    EXPECT_FALSE(QFileInfo::exists(doomed));
    EXPECT_TRUE(QFileInfo::exists(kept));
    QTest::mouseClick(rowButton(*view, u"deleteAttachment"_s, 1), Qt::LeftButton);
    EXPECT_EQ(attachmentNames(*view), QStringList{u"garde.txt"_s});
    ASSERT_EQ(store->items().first().attachments.size(), 1);
    EXPECT_EQ(store->items().first().attachments.first().fileName, u"garde.txt"_s);
    EXPECT_EQ(onDisk().items, store->items());
}

TEST_F(DetailViewTest, DeletingTheRecordAsksThenRemovesItsFilesAndCloses)
{
    const QString file = sourceFile(u"piece.txt"_s);
    LinkItem item = makeItem(u"f"_s, u"A"_s, {Attachment{QUuid::createUuid(), u"piece.txt"_s, file}});
    LinkItem other = makeItem(u"g"_s, u"A"_s);
    auto store = startWith({item, other}, {u"A"_s});
    auto view = openDetail(*store, item);
    m_dialogs.alertAnswers.push_back({1, {}});
    QTest::mouseClick(child<QPushButton>(view.get(), u"deleteItem"_s), Qt::LeftButton);
    EXPECT_EQ(store->items().size(), 2);
    EXPECT_EQ(m_closed, 0);

    QTest::mouseClick(child<QPushButton>(view.get(), u"deleteItem"_s), Qt::LeftButton);
    const AlertRequest expected{u"Supprimer cette fiche ?"_s,
                                u"Cette action est irréversible."_s,
                                AlertStyle::warning,
                                {u"Supprimer"_s, u"Annuler"_s},
                                std::nullopt};
    EXPECT_EQ(m_dialogs.alerts.back(), expected);
    EXPECT_EQ(store->items(), QList<LinkItem>{other});
    EXPECT_FALSE(QFileInfo::exists(file));
    EXPECT_EQ(onDisk().items, store->items());
    EXPECT_EQ(m_closed, 1);

    QTest::mouseClick(buttonWithText(view.get(), u"Fermer"_s), Qt::LeftButton);
    EXPECT_EQ(m_closed, 2);
}

TEST_F(DetailViewTest, PreviewOfAMissingFileOnlyPrints)
{
    const QString missing = m_sources.filePath(u"absent.png"_s);
    LinkItem item = makeItem(u"f"_s, u"A"_s, {Attachment{QUuid::createUuid(), u"absent.png"_s, missing}});
    auto store = startWith({item}, {u"A"_s});
    auto view = openDetail(*store, item);
    StdoutCapture capture;
    QTest::mouseClick(rowButton(*view, u"previewAttachment"_s, 0), Qt::LeftButton);
    EXPECT_EQ(capture.finish(), u"🔥 Fonction previewAttachment LANCÉE !\n📄 Aperçu fichier : "_s + missing +
                                    u"\n⛔️ FICHIER ABSENT sur le disque !\n"_s);
    EXPECT_TRUE(previewWindows().isEmpty());
    EXPECT_TRUE(m_dialogs.alerts.empty());
}

TEST_F(DetailViewTest, PreviewOpensAWindowPerTypeTitledWithTheName)
{
    const QString png = m_sources.filePath(u"image.png"_s);
    QImage image(40, 30, QImage::Format_RGB32);
    image.fill(Qt::red);
    ASSERT_TRUE(image.save(png));
    const QString pdf = m_sources.filePath(u"doc.pdf"_s);
    {
        QPdfWriter writer(pdf);
        QPainter painter(&writer);
        painter.drawText(100, 100, u"Bonjour"_s);
    }
    const QString html = sourceFile(u"page.html"_s, "<html><body><p>Salut</p></body></html>");
    const QString text = sourceFile(u"lisez-moi.txt"_s, "du texte");
    const QString other = sourceFile(u"donnees.bin"_s, QByteArray("\x00\x01\x02\xff", 4));
    const QString fakePng = sourceFile(u"faux.png"_s, "pas une image");

    struct Case
    {
        QString path;
        AttachmentPreviewWindow::PreviewKind kind;
    };
    using Kind = AttachmentPreviewWindow::PreviewKind;
    const std::vector<Case> cases{{png, Kind::image}, {pdf, Kind::pdf},     {html, Kind::html},
                                  {text, Kind::text}, {other, Kind::other}, {fakePng, Kind::other}};
    QList<Attachment> list;
    for (const Case &c : cases)
        list.append(Attachment{QUuid::createUuid(), QFileInfo(c.path).fileName(), c.path});
    LinkItem item = makeItem(u"f"_s, u"A"_s, list);
    auto store = startWith({item}, {u"A"_s});
    auto view = openDetail(*store, item);
    for (std::size_t i = 0; i < cases.size(); ++i) {
        StdoutCapture quiet;
        QTest::mouseClick(rowButton(*view, u"previewAttachment"_s, static_cast<int>(i)), Qt::LeftButton);
        const QList<AttachmentPreviewWindow *> windows = previewWindows();
        ASSERT_EQ(windows.size(), static_cast<qsizetype>(i + 1));
        AttachmentPreviewWindow *window = nullptr;
        for (AttachmentPreviewWindow *w : windows) {
            if (w->path() == cases[i].path)
                window = w;
        }
        ASSERT_NE(window, nullptr);
        EXPECT_EQ(window->windowTitle(), QFileInfo(cases[i].path).fileName());
        EXPECT_EQ(window->size(), QSize(900, 700));
        EXPECT_EQ(window->previewKind(), cases[i].kind) << cases[i].path.toStdString();
        EXPECT_TRUE(window->isVisible());
    }
    AttachmentPreviewWindow *summary = nullptr;
    for (AttachmentPreviewWindow *w : previewWindows()) {
        if (w->path() == other)
            summary = w;
    }
    ASSERT_NE(summary, nullptr);
    EXPECT_TRUE(showsLabel(summary, u"donnees.bin"_s));
    QTest::mouseClick(child<QPushButton>(summary, u"openFile"_s), Qt::LeftButton);
    EXPECT_EQ(m_workspace.calls, std::vector<QString>{u"openPath "_s + other});
}

// Every non-empty run of the document: its text, family, size, bold and italic.
struct NoteRun
{
    QString text;
    QString family;
    double size;
    bool bold;
    bool italic;
    friend bool operator==(const NoteRun &, const NoteRun &) = default;
    friend void PrintTo(const NoteRun &run, std::ostream *os)
    {
        *os << '"' << run.text.toStdString() << "\" " << run.family.toStdString() << ' ' << run.size
            << (run.bold ? " bold" : "") << (run.italic ? " italic" : "");
    }
};

std::vector<NoteRun> runsOf(const QTextDocument &document)
{
    std::vector<NoteRun> runs;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextCharFormat f = it.fragment().charFormat();
            const QStringList families = f.fontFamilies().toStringList();
            runs.push_back({it.fragment().text(), families.value(0), f.fontPointSize(),
                            f.fontWeight() >= QFont::Bold, f.fontItalic()});
        }
    }
    return runs;
}

TEST(RenderNotesTest, EveryRunTakesTheNotesFontAndKeepsBoldAndItalic)
{
    ensureWidgetsApplication();
    const auto document = DetailView::renderNotes(
        notesHTML(u"a <b>gras</b> <i>penché</i> <b><i>les deux</i></b> <span style=\"font-family:Arial; "
                  "font-size:40pt\">z</span>"_s),
        u"Courier New"_s, 20);
    ASSERT_NE(document, nullptr);
    const std::vector<NoteRun> expected{
        {u"a "_s, u"Courier New"_s, 20, false, false},
        {u"gras"_s, u"Courier New"_s, 20, true, false},
        {u" "_s, u"Courier New"_s, 20, false, false},
        {u"penché"_s, u"Courier New"_s, 20, false, true},
        {u" "_s, u"Courier New"_s, 20, false, false},
        {u"les deux"_s, u"Courier New"_s, 20, true, true},
        // The span's own family and size give way too, so it joins the run around it.
        {u" z "_s, u"Courier New"_s, 20, false, false}};
    EXPECT_EQ(runsOf(*document), expected);
}

TEST(RenderNotesTest, TextWithoutUtf8FormGivesNothing)
{
    ensureWidgetsApplication();
    QString broken = u"abc"_s;
    broken.append(QChar(0xD800));
    EXPECT_EQ(DetailView::renderNotes(broken, u"Helvetica"_s, 16), nullptr);
    EXPECT_NE(DetailView::renderNotes(u"pas du HTML <<<"_s, u"Helvetica"_s, 16), nullptr);
}

TEST_F(DetailViewTest, NotesFontFollowsPreferencesOnTheNextRender)
{
    LinkItem item = makeItem(u"f"_s, u"A"_s);
    item.notes = notesHTML(u"texte"_s);
    auto store = startWith({item}, {u"A"_s});
    auto view = openDetail(*store, item);
    auto *notes = child<QTextBrowser>(view.get(), u"notes"_s);
    ASSERT_FALSE(runsOf(*notes->document()).empty());
    EXPECT_EQ(runsOf(*notes->document()).front(), (NoteRun{u"texte "_s, u"Helvetica"_s, 16, false, false}));

    m_settings.setNoteFontName(u"Georgia"_s);
    m_settings.setNoteFontSize(24);
    // The view does not watch the settings: nothing changes until it renders again.
    EXPECT_EQ(runsOf(*notes->document()).front().family, u"Helvetica"_s);
    view->refresh();
    EXPECT_EQ(runsOf(*notes->document()).front(), (NoteRun{u"texte "_s, u"Georgia"_s, 24, false, false}));

    m_settings.setNoteFontSize(0);
    store->updateItem(item.id, [](LinkItem &stored) { stored.notes = notesHTML(u"autre"_s); });
    EXPECT_EQ(runsOf(*notes->document()).front(), (NoteRun{u"autre "_s, u"Georgia"_s, 16, false, false}));
}

} // namespace
