#include "ui/main/DetailView.h"

#include "model/LinkItem.h"
#include "platform/Dialogs.h"
#include "platform/Settings.h"
#include "platform/Workspace.h"
#include "store/BackupFiles.h"
#include "store/Console.h"
#include "store/LinkStore.h"
#include "ui/common/DateText.h"
#include "ui/common/Labels.h"
#include "ui/common/Symbols.h"
#include "ui/editing/EditLinkView.h"
#include "ui/main/AttachmentPreviewWindow.h"
#include "ui/main/RelocationSearch.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QStyle>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextCursor>
#include <QTextDocument>
#include <QUrl>
#include <QVBoxLayout>

#include <cmath>
#include <utility>
#include <vector>

namespace fiva {

namespace {

QLabel *secondary(QWidget *parent, const QString &objectName)
{
    auto *label = new QLabel(parent);
    label->setObjectName(objectName);
    label->setForegroundRole(QPalette::PlaceholderText);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

void makeDestructive(QPushButton *button)
{
    QPalette palette = button->palette();
    palette.setColor(QPalette::ButtonText, QColor(0xc0, 0x1c, 0x28));
    button->setPalette(palette);
}

// The size notes are drawn at: the stored one when it is a usable size, else the default.
double usableNoteSize(double points)
{
    if (!std::isfinite(points) || points <= 0)
        return Settings::defaultValue(Settings::Key::noteFontSize).toDouble();
    return std::min(points, 500.0);
}

// A warning sign whose tooltip says what is wrong; hidden until there is something to say.
QLabel *problemMark(QWidget *parent, const QString &objectName)
{
    auto *mark = new QLabel(parent);
    mark->setObjectName(objectName);
    mark->setPixmap(parent->style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(16, 16));
    mark->setVisible(false);
    return mark;
}

} // namespace

DetailView::DetailView(LinkStore &store, Dialogs &dialogs, Workspace &workspace, const Settings &settings,
                       const LinkItem &item, QWidget *parent)
    : QWidget(parent), m_store(store), m_dialogs(dialogs), m_workspace(workspace), m_settings(settings),
      m_item(std::make_unique<LinkItem>(item))
{
    build();
    refresh();
    connect(&m_store, &LinkStore::itemsChanged, this, &DetailView::refresh);
    setAcceptDrops(true);
}

DetailView::~DetailView() = default;

QUuid DetailView::itemId() const
{
    return m_item->id;
}

LinkItem DetailView::currentItem() const
{
    for (const LinkItem &item : m_store.items()) {
        if (item.id == m_item->id)
            return item;
    }
    return *m_item;
}

void DetailView::build()
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(20);

    auto *header = new QHBoxLayout;
    m_title = new QLabel(this);
    m_title->setObjectName(QStringLiteral("title"));
    QFont titleFont = m_title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 2.0);
    titleFont.setBold(true);
    m_title->setFont(titleFont);
    m_title->setWordWrap(true);
    header->addWidget(m_title, 1);
    auto *edit = new QPushButton(symbols::icon(QStringLiteral("pencil")), QStringLiteral("Modifier"), this);
    edit->setObjectName(QStringLiteral("edit"));
    header->addWidget(edit, 0, Qt::AlignTop);
    layout->addLayout(header);

    auto *fields = new QVBoxLayout;
    fields->setSpacing(10);
    auto fieldRow = [&](const QString &label, QLabel *value) {
        auto *row = new QHBoxLayout;
        row->addWidget(headlineLabel(label, this));
        row->addWidget(value, 1);
        fields->addLayout(row);
        return row;
    };
    m_path = secondary(this, QStringLiteral("path"));
    m_path->setWordWrap(true);
    QHBoxLayout *linkRow = fieldRow(QStringLiteral("Lien :"), m_path);
    m_linkProblem = problemMark(this, QStringLiteral("linkProblem"));
    linkRow->insertWidget(linkRow->indexOf(m_path), m_linkProblem);
    m_searchLink = new QPushButton(QStringLiteral("Rechercher…"), this);
    m_searchLink->setObjectName(QStringLiteral("searchLink"));
    m_searchLink->setToolTip(QStringLiteral("Chercher l’élément du même nom dans un dossier"));
    m_searchLink->setVisible(false);
    linkRow->addWidget(m_searchLink);
    connect(m_searchLink, &QPushButton::clicked, this,
            [this] { RelocationSearch::forRecord(m_store, m_dialogs, currentItem(), this); });
    m_openLink = new QPushButton(this);
    m_openLink->setObjectName(QStringLiteral("openLink"));
    linkRow->addWidget(m_openLink);
    m_kind = secondary(this, QStringLiteral("kind"));
    fieldRow(QStringLiteral("Type :"), m_kind);
    m_category = secondary(this, QStringLiteral("category"));
    fieldRow(QStringLiteral("Catégorie :"), m_category);
    m_favorite = new QLabel(this);
    m_favorite->setObjectName(QStringLiteral("favorite"));
    fieldRow(QStringLiteral("Favori :"), m_favorite);
    m_createdAt = secondary(this, QStringLiteral("createdAt"));
    fieldRow(QStringLiteral("Créé le :"), m_createdAt);
    layout->addLayout(fields);

    auto *notesBlock = new QVBoxLayout;
    notesBlock->setSpacing(8);
    notesBlock->addWidget(headlineLabel(QStringLiteral("Notes"), this));
    m_notes = new QTextBrowser(this);
    m_notes->setObjectName(QStringLiteral("notes"));
    m_notes->setMinimumHeight(120);
    m_notes->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    m_notes->setOpenLinks(false);
    m_notes->setStyleSheet(QStringLiteral("QTextBrowser { background: palette(base); border-radius: 6px; "
                                          "border: none; padding: 6px; }"));
    notesBlock->addWidget(m_notes, 1);
    m_noNotes = secondary(this, QStringLiteral("noNotes"));
    m_noNotes->setText(QStringLiteral("Aucune note"));
    notesBlock->addWidget(m_noNotes);
    layout->addLayout(notesBlock, 1);

    m_attachmentsLayout = new QVBoxLayout;
    m_attachmentsLayout->setSpacing(8);
    m_attachmentsLayout->addWidget(headlineLabel(QStringLiteral("Pièces jointes"), this));
    m_attachmentRows = new QWidget(this);
    m_attachmentsLayout->addWidget(m_attachmentRows);
    m_attachmentsLayout->addSpacing(4);
    auto *attach = new QPushButton(symbols::icon(QStringLiteral("paperclip")),
                                   QStringLiteral("Ajouter une pièce jointe…"), this);
    attach->setObjectName(QStringLiteral("addAttachment"));
    m_attachmentsLayout->addWidget(attach, 0, Qt::AlignLeft);
    layout->addLayout(m_attachmentsLayout);

    auto *bottom = new QHBoxLayout;
    bottom->addStretch(1);
    auto *remove = new QPushButton(symbols::icon(QStringLiteral("trash")), QStringLiteral("Supprimer"), this);
    remove->setObjectName(QStringLiteral("deleteItem"));
    makeDestructive(remove);
    bottom->addWidget(remove);
    auto *close = new QPushButton(QStringLiteral("Fermer"), this);
    close->setObjectName(QStringLiteral("close"));
    bottom->addWidget(close);
    layout->addLayout(bottom);

    connect(edit, &QPushButton::clicked, this, [this] {
        if (m_onEdit)
            m_onEdit(currentItem());
    });
    connect(m_openLink, &QPushButton::clicked, this, &DetailView::openLink);
    connect(m_notes, &QTextBrowser::anchorClicked, this,
            [this](const QUrl &url) { m_workspace.openUrl(url); });
    connect(attach, &QPushButton::clicked, this, &DetailView::addAttachment);
    connect(remove, &QPushButton::clicked, this, &DetailView::confirmDeleteItem);
    connect(close, &QPushButton::clicked, this, [this] {
        if (m_onClose)
            m_onClose();
    });
}

void DetailView::refresh()
{
    const LinkItem item = currentItem();
    m_title->setText(item.title);
    m_path->setText(item.path);
    m_openLink->setText(item.kind == LinkKind::directory ? QStringLiteral("Ouvrir dans le Finder")
                                                         : QStringLiteral("Ouvrir"));
    m_kind->setText(EditLinkView::linkKindLabel(item.kind));
    m_category->setText(item.category);
    m_favorite->setPixmap(
        symbols::icon(item.isFavorite ? QStringLiteral("star.fill") : QStringLiteral("star")).pixmap(16, 16));
    // The star alone says nothing to a screen reader or to someone unsure of its meaning.
    const QString favoriteText = item.isFavorite ? QStringLiteral("Favori") : QStringLiteral("Pas favori");
    m_favorite->setToolTip(favoriteText);
    m_favorite->setAccessibleName(favoriteText);
    m_createdAt->setText(dateTimeText(item.createdAt));

    std::unique_ptr<QTextDocument> rendered;
    if (item.notes) {
        rendered = renderNotes(*item.notes, m_settings.noteFontName(),
                               usableNoteSize(m_settings.noteFontSizeForRendering()));
    }
    const bool showNotes = rendered != nullptr;
    if (rendered) {
        // Parented to the browser, the previous document is deleted by setDocument itself.
        rendered->setParent(m_notes);
        m_notes->setDocument(rendered.release());
    }
    m_notes->setVisible(showNotes);
    m_noNotes->setVisible(!showNotes);

    rebuildAttachments(item);
}

void DetailView::setProblems(const QString &linkProblem, const QHash<QUuid, QString> &attachmentProblems,
                             const QHash<QUuid, qint64> &attachmentSizes)
{
    m_linkProblem->setToolTip(linkProblem);
    m_linkProblem->setAccessibleName(linkProblem);
    m_linkProblem->setVisible(!linkProblem.isEmpty());
    // A web page cannot be searched for on disk.
    m_searchLink->setVisible(!linkProblem.isEmpty() && currentItem().kind != LinkKind::url);
    if (attachmentProblems != m_attachmentProblems || attachmentSizes != m_attachmentSizes) {
        m_attachmentProblems = attachmentProblems;
        m_attachmentSizes = attachmentSizes;
        rebuildAttachments(currentItem());
    }
}

void DetailView::rebuildAttachments(const LinkItem &item)
{
    // The rows are replaced whole; the old ones may hold the button being clicked right now, so
    // they go later rather than at once.
    QWidget *old = m_attachmentRows;
    old->setObjectName(QString());
    old->hide();
    old->deleteLater();

    m_attachmentRows = new QWidget(this);
    m_attachmentRows->setObjectName(QStringLiteral("attachments"));
    auto *rows = new QVBoxLayout(m_attachmentRows);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(8);
    if (item.attachments.isEmpty()) {
        auto *none = secondary(m_attachmentRows, QStringLiteral("noAttachments"));
        none->setText(QStringLiteral("Aucune pièce jointe"));
        rows->addWidget(none);
    }
    for (const Attachment &attachment : item.attachments) {
        auto *row = new QHBoxLayout;
        auto *name = new QLabel(attachment.fileName, m_attachmentRows);
        name->setObjectName(QStringLiteral("attachmentName"));
        name->setTextFormat(Qt::PlainText);
        row->addWidget(name, 1);
        if (const auto problem = m_attachmentProblems.constFind(attachment.id);
            problem != m_attachmentProblems.cend()) {
            QLabel *mark = problemMark(m_attachmentRows, QStringLiteral("attachmentProblem"));
            mark->setToolTip(*problem);
            mark->setVisible(true);
            row->insertWidget(0, mark);
            auto *search = new QPushButton(QStringLiteral("Rechercher…"), m_attachmentRows);
            search->setObjectName(QStringLiteral("searchAttachment"));
            row->addWidget(search);
            const std::optional<qint64> size = m_attachmentSizes.contains(attachment.id)
                                                   ? std::optional(m_attachmentSizes.value(attachment.id))
                                                   : std::nullopt;
            connect(search, &QPushButton::clicked, this, [this, attachment, size] {
                RelocationSearch::forAttachment(m_store, m_dialogs, itemId(), attachment, size, this);
            });
        }
        auto *preview = new QPushButton(QStringLiteral("Aperçu"), m_attachmentRows);
        preview->setObjectName(QStringLiteral("previewAttachment"));
        row->addWidget(preview);
        auto *open = new QPushButton(QStringLiteral("Ouvrir"), m_attachmentRows);
        open->setObjectName(QStringLiteral("openAttachment"));
        row->addWidget(open);
        auto *remove = new QPushButton(symbols::icon(QStringLiteral("trash")), QString(), m_attachmentRows);
        remove->setObjectName(QStringLiteral("deleteAttachment"));
        remove->setToolTip(QStringLiteral("Supprimer"));
        makeDestructive(remove);
        row->addWidget(remove);
        rows->addLayout(row);
        connect(preview, &QPushButton::clicked, this, [this, attachment] { previewAttachment(attachment); });
        connect(open, &QPushButton::clicked, this, [this, attachment] { openAttachment(attachment); });
        connect(remove, &QPushButton::clicked, this, [this, attachment] { deleteAttachment(attachment); });
    }
    const int index = m_attachmentsLayout->indexOf(old);
    m_attachmentsLayout->insertWidget(index >= 0 ? index : 1, m_attachmentRows);
    m_attachmentsLayout->removeWidget(old);
}

std::unique_ptr<QTextDocument> DetailView::renderNotes(const QString &html, const QString &fontName,
                                                       double pointSize)
{
    // The only text that cannot be read is one that has no UTF-8 form: a lone surrogate, left by
    // a damaged file. Everything else reads as HTML, as browsers read anything.
    const QByteArray bytes = html.toUtf8();
    if (QString::fromUtf8(bytes) != html)
        return nullptr;

    auto document = std::make_unique<QTextDocument>();
    document->setHtml(QString::fromUtf8(bytes));

    // Every run gets the notes font at the chosen size; only its weight and slant survive from the
    // HTML, so a bold italic run stays both. Colours, paragraphs and lists are left as they were read.
    // Headings, <big>, <small> and <font size> do not carry a size but a relative step that the
    // document applies on top of any size set here, so the step itself has to go, as do pixel sizes.
    // The runs are listed first and changed afterwards: changing a format merges fragments and
    // would pull the ground from under an iterator walking them.
    const auto notesFormat = [&](QTextCharFormat format) {
        format.clearProperty(QTextFormat::FontSizeAdjustment);
        format.clearProperty(QTextFormat::FontPixelSize);
        format.setFontFamilies(QStringList{fontName});
        format.setFontPointSize(pointSize);
        format.setFontWeight(format.fontWeight() >= QFont::Bold ? QFont::Bold : QFont::Normal);
        return format;
    };
    struct Run
    {
        int position;
        int length;
        QTextCharFormat format;
    };
    std::vector<Run> runs;
    std::vector<std::pair<int, QTextCharFormat>> blocks;
    for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) {
        blocks.emplace_back(block.position(), notesFormat(block.charFormat()));
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextFragment fragment = it.fragment();
            if (fragment.isValid())
                runs.push_back({fragment.position(), fragment.length(), notesFormat(fragment.charFormat())});
        }
    }
    QTextCursor cursor(document.get());
    for (const auto &[position, format] : blocks) {
        cursor.setPosition(position);
        cursor.setBlockCharFormat(format);
    }
    for (const Run &run : runs) {
        cursor.setPosition(run.position);
        cursor.setPosition(run.position + run.length, QTextCursor::KeepAnchor);
        cursor.setCharFormat(run.format);
    }
    // Empty paragraphs and the space between blocks take the document's font.
    QFont base(fontName);
    base.setPointSizeF(pointSize);
    document->setDefaultFont(base);
    return document;
}

void DetailView::openLink()
{
    const LinkItem item = currentItem();
    switch (item.kind) {
    case LinkKind::url: {
        const QUrl url(item.path, QUrl::StrictMode);
        if (item.path.isEmpty() || !url.isValid())
            return;
        m_workspace.openUrl(url);
        break;
    }
    case LinkKind::file:
        m_workspace.openPath(item.path);
        break;
    case LinkKind::directory:
        m_workspace.showFolder(item.path);
        break;
    }
}

void DetailView::addAttachment()
{
    OpenPanelRequest request;
    request.kind = OpenPanelRequest::Kind::files;
    request.allowsMultipleSelection = false;
    request.confirmButtonTitle = QStringLiteral("Choisir");
    // The panel may answer after the view is gone (the selection changed meanwhile).
    QPointer<DetailView> self(this);
    m_dialogs.showOpenPanel(request, [self](std::optional<QStringList> chosen) {
        if (!self || !chosen || chosen->isEmpty() || chosen->first().isEmpty())
            return;
        self->copyAttachment(chosen->first());
    });
}

void DetailView::copyAttachment(const QString &source)
{
    const QString folder = m_store.attachmentsFolderURL();
    QDir().mkpath(folder);
    const QString destination = backup::freeCopyPath(folder, QFileInfo(source).fileName());
    QFile file(source);
    if (!file.copy(destination)) {
        console::print(u"Erreur copie fichier :", file.errorString());
        return;
    }
    Attachment attachment{QUuid::createUuid(), QFileInfo(destination).fileName(), destination};
    // Without the record (deleted meanwhile) the copy stays in the folder and nothing is recorded.
    m_store.addAttachment(m_item->id, attachment);
}

void DetailView::previewAttachment(const Attachment &attachment)
{
    console::print(u"🔥 Fonction previewAttachment LANCÉE !");
    console::print(u"📄 Aperçu fichier :", attachment.filePath);
    // Whatever is there can be shown: a folder gets the summary with its "Ouvrir" button.
    if (!QFileInfo::exists(attachment.filePath)) {
        console::print(u"⛔️ FICHIER ABSENT sur le disque !");
        return;
    }
    // Files are reachable as they are here; there is no sandbox to ask.
    console::print(u"🔐 Access:", u"true");
    AttachmentPreviewWindow::open(attachment.filePath, m_workspace);
}

void DetailView::openAttachment(const Attachment &attachment)
{
    if (QFileInfo::exists(attachment.filePath)) {
        m_workspace.openPath(attachment.filePath);
        return;
    }
    m_dialogs.runAlert(AlertRequest{QStringLiteral("Fichier introuvable"),
                                    QStringLiteral("La pièce jointe «") + attachment.fileName +
                                        QStringLiteral("» n’existe plus."),
                                    AlertStyle::warning,
                                    {QStringLiteral("OK")},
                                    std::nullopt});
}

void DetailView::deleteAttachment(const Attachment &attachment)
{
    const AlertAnswer answer = m_dialogs.runAlert(
        AlertRequest{QStringLiteral("Supprimer cette pièce jointe ?"),
                     // The file goes to the trash now, so the warning says where it can be found again.
                     QStringLiteral("Le fichier sera placé dans la corbeille."),
                     AlertStyle::warning,
                     {QStringLiteral("Supprimer"), QStringLiteral("Annuler")},
                     std::nullopt});
    if (answer.button != 0)
        return;
    // The store discards the file (into the desktop trash) and drops the entry from the record
    // as it is on disk now.
    m_store.removeAttachment(m_item->id, attachment);
}

bool DetailView::confirmRecordDeletion(Dialogs &dialogs)
{
    const AlertAnswer answer =
        dialogs.runAlert(AlertRequest{QStringLiteral("Supprimer cette fiche ?"),
                                      QStringLiteral("Cette action est irréversible."),
                                      AlertStyle::warning,
                                      {QStringLiteral("Supprimer"), QStringLiteral("Annuler")},
                                      std::nullopt});
    return answer.button == 0;
}

void DetailView::confirmDeleteItem()
{
    if (!confirmRecordDeletion(m_dialogs))
        return;
    m_store.deleteItem(m_item->id);
    if (m_onClose)
        m_onClose();
}

} // namespace fiva
