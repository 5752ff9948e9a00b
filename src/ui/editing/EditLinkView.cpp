#include "ui/editing/EditLinkView.h"

#include "model/LinkItem.h"
#include "platform/Clock.h"
#include "platform/Dialogs.h"
#include "store/LinkStore.h"
#include "store/StoredNotes.h"
#include "store/Trimming.h"
#include "ui/common/Labels.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QTextDocument>
#include <QVBoxLayout>

#include <array>
#include <limits>

namespace fiva {

namespace {

constexpr std::array allLinkTypes{EditLinkView::LinkType::url, EditLinkView::LinkType::file,
                                  EditLinkView::LinkType::directory};

// By position, never by label: the two enumerations list the same kinds in the same order.
LinkKind kindOf(EditLinkView::LinkType type)
{
    constexpr std::array kinds{LinkKind::url, LinkKind::file, LinkKind::directory};
    return kinds[static_cast<std::size_t>(type)];
}

EditLinkView::LinkType typeOf(LinkKind kind)
{
    return allLinkTypes[static_cast<std::size_t>(kind)];
}

} // namespace

QString EditLinkView::linkKindLabel(LinkKind kind)
{
    return linkTypeLabel(typeOf(kind));
}

QString EditLinkView::linkTypeLabel(LinkType type)
{
    switch (type) {
    case LinkType::url:
        return QStringLiteral("Lien Internet");
    case LinkType::file:
        return QStringLiteral("Fichier local");
    case LinkType::directory:
        return QStringLiteral("Dossier");
    }
    return {};
}

EditLinkView::EditLinkView(LinkStore &store, Dialogs &dialogs, const Clock &clock, const LinkItem *itemToEdit,
                           QWidget *parent)
    : QDialog(parent), m_store(store), m_dialogs(dialogs), m_clock(clock), m_editing(itemToEdit != nullptr)
{
    // A sheet: modal to the window that presents it, not to the whole application.
    setWindowModality(Qt::WindowModal);
    setWindowTitle(m_editing ? QStringLiteral("Modifier la fiche") : QStringLiteral("Nouvelle fiche"));
    setMinimumSize(520, 650);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(20);

    auto *heading = new QLabel(windowTitle(), this);
    heading->setObjectName(QStringLiteral("heading"));
    QFont headingFont = heading->font();
    headingFont.setPointSizeF(headingFont.pointSizeF() * 2.0);
    headingFont.setBold(true);
    heading->setFont(headingFont);
    layout->addWidget(heading);

    auto *titleBlock = new QVBoxLayout;
    titleBlock->addWidget(headlineLabel(QStringLiteral("Titre"), this));
    m_title = new QLineEdit(this);
    m_title->setObjectName(QStringLiteral("title"));
    m_title->setPlaceholderText(QStringLiteral("Titre de la fiche"));
    // The line edit's default limit would cut a long value when the form opens, and save it cut.
    m_title->setMaxLength(std::numeric_limits<int>::max());
    titleBlock->addWidget(m_title);
    layout->addLayout(titleBlock);

    auto *typeBlock = new QVBoxLayout;
    typeBlock->addWidget(headlineLabel(QStringLiteral("Type de lien"), this));
    auto *segments = new QWidget(this);
    segments->setFixedWidth(320);
    auto *segmentsLayout = new QHBoxLayout(segments);
    segmentsLayout->setContentsMargins(0, 0, 0, 0);
    segmentsLayout->setSpacing(0);
    m_linkTypeGroup = new QButtonGroup(this);
    m_linkTypeGroup->setExclusive(true);
    for (LinkType type : allLinkTypes) {
        auto *segment = new QPushButton(linkTypeLabel(type), segments);
        segment->setObjectName(QStringLiteral("linkType%1").arg(static_cast<int>(type)));
        segment->setCheckable(true);
        segment->setAutoDefault(false);
        segmentsLayout->addWidget(segment);
        m_linkTypeGroup->addButton(segment, static_cast<int>(type));
    }
    typeBlock->addWidget(segments);
    layout->addLayout(typeBlock);

    // One field serves the three location blocks: switching the kind relabels it and keeps its text.
    auto *locationBlock = new QVBoxLayout;
    m_locationLabel = headlineLabel(QString(), this);
    locationBlock->addWidget(m_locationLabel);
    auto *locationRow = new QHBoxLayout;
    m_path = new QLineEdit(this);
    m_path->setObjectName(QStringLiteral("path"));
    // A data: address or a hand-edited record can be far longer than the default limit.
    m_path->setMaxLength(std::numeric_limits<int>::max());
    locationRow->addWidget(m_path, 1);
    m_choose = new QPushButton(QStringLiteral("Choisir…"), this);
    m_choose->setObjectName(QStringLiteral("choose"));
    m_choose->setAutoDefault(false);
    locationRow->addWidget(m_choose);
    locationBlock->addLayout(locationRow);
    layout->addLayout(locationBlock);

    auto *categoryBlock = new QVBoxLayout;
    categoryBlock->addWidget(headlineLabel(QStringLiteral("Catégorie"), this));
    m_categoryPicker = new QComboBox(this);
    m_categoryPicker->setObjectName(QStringLiteral("category"));
    m_categoryPicker->setAccessibleName(QStringLiteral("Catégorie"));
    m_categoryPicker->addItems(m_store.categories());
    categoryBlock->addWidget(m_categoryPicker, 0, Qt::AlignLeft);
    layout->addLayout(categoryBlock);

    auto *notesBlock = new QVBoxLayout;
    notesBlock->addWidget(headlineLabel(QStringLiteral("Notes"), this));
    m_notes = new QPlainTextEdit(this);
    m_notes->setObjectName(QStringLiteral("notes"));
    m_notes->setMinimumHeight(160);
    m_notes->setTabChangesFocus(true);
    QColor border = palette().color(QPalette::PlaceholderText);
    m_notes->setStyleSheet(QStringLiteral("QPlainTextEdit { background: palette(base); border-radius: 6px; "
                                          "padding: 8px; border: 1px solid rgba(%1, %2, %3, 0.3); }")
                               .arg(border.red())
                               .arg(border.green())
                               .arg(border.blue()));
    notesBlock->addWidget(m_notes, 1);
    layout->addLayout(notesBlock, 1);

    auto *buttonRow = new QHBoxLayout;
    buttonRow->addStretch(1);
    auto *cancel = new QPushButton(QStringLiteral("Annuler"), this);
    cancel->setObjectName(QStringLiteral("cancel"));
    cancel->setAutoDefault(false);
    buttonRow->addWidget(cancel);
    m_confirm = new QPushButton(m_editing ? QStringLiteral("Enregistrer") : QStringLiteral("Ajouter"), this);
    m_confirm->setObjectName(QStringLiteral("confirm"));
    m_confirm->setDefault(true);
    buttonRow->addWidget(m_confirm);
    layout->addLayout(buttonRow);

    populateForm(itemToEdit);

    connect(m_linkTypeGroup, &QButtonGroup::idClicked, this,
            [this](int id) { setLinkType(static_cast<LinkType>(id)); });
    connect(m_choose, &QPushButton::clicked, this, [this] {
        if (m_linkType == LinkType::directory)
            chooseLocation(false, true, LinkType::directory);
        else
            chooseLocation(true, false, LinkType::file);
    });
    connect(m_categoryPicker, &QComboBox::activated, this,
            [this](int index) { m_category = m_categoryPicker->itemText(index); });
    // Escape already rejects a dialog; the button does the same.
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(m_confirm, &QPushButton::clicked, this, &EditLinkView::saveItem);
}

EditLinkView::~EditLinkView() = default;

void EditLinkView::populateForm(const LinkItem *itemToEdit)
{
    if (itemToEdit) {
        m_editedId = itemToEdit->id;
        m_title->setText(itemToEdit->title);
        m_path->setText(itemToEdit->path);
        m_category = itemToEdit->category;
        m_notes->setPlainText(itemToEdit->notes ? notesPlainText(*itemToEdit->notes) : QString());
        m_linkType = typeOf(itemToEdit->kind);
    } else {
        m_category =
            m_store.categories().isEmpty() ? LinkStore::uncategorized() : m_store.categories().first();
        m_linkType = LinkType::url;
    }
    // A category missing from the list (deleted meanwhile) selects nothing and is kept as it is.
    m_categoryPicker->setCurrentIndex(m_categoryPicker->findText(m_category, Qt::MatchExactly));
    setLinkType(m_linkType);
}

void EditLinkView::setLinkType(LinkType type)
{
    m_linkType = type;
    if (QAbstractButton *segment = m_linkTypeGroup->button(static_cast<int>(type)))
        segment->setChecked(true);
    showLocationBlock();
}

void EditLinkView::showLocationBlock()
{
    switch (m_linkType) {
    case LinkType::url:
        m_locationLabel->setText(QStringLiteral("URL du site"));
        m_path->setPlaceholderText(QStringLiteral("https://…"));
        break;
    case LinkType::file:
        m_locationLabel->setText(QStringLiteral("Fichier local"));
        m_path->setPlaceholderText(QStringLiteral("Chemin du fichier"));
        break;
    case LinkType::directory:
        m_locationLabel->setText(QStringLiteral("Dossier"));
        m_path->setPlaceholderText(QStringLiteral("Chemin du dossier"));
        break;
    }
    m_choose->setVisible(m_linkType != LinkType::url);
}

void EditLinkView::chooseLocation(bool filesAllowed, bool foldersAllowed, LinkType typeToSet)
{
    OpenPanelRequest request;
    request.kind =
        foldersAllowed && !filesAllowed ? OpenPanelRequest::Kind::folders : OpenPanelRequest::Kind::files;
    request.allowsMultipleSelection = false;
    // The panel answers later; the form may be gone by then.
    QPointer<EditLinkView> self(this);
    m_dialogs.showOpenPanel(request, [self, typeToSet](std::optional<QStringList> chosen) {
        if (!self || !chosen || chosen->isEmpty() || chosen->first().isEmpty())
            return;
        self->m_path->setText(chosen->first());
        self->setLinkType(typeToSet);
    });
}

QString EditLinkView::editorText() const
{
    // toPlainText would turn no-break spaces into plain ones; the raw text keeps what was typed and
    // only the editor's own block and line separators become line feeds.
    QString text = m_notes->document()->toRawText();
    text.replace(QChar::ParagraphSeparator, QLatin1Char('\n'));
    text.replace(QChar::LineSeparator, QLatin1Char('\n'));
    return text;
}

void EditLinkView::prefill(const QString &title, const QString &path, LinkType type)
{
    m_title->setText(title);
    m_path->setText(path);
    setLinkType(type);
}

void EditLinkView::saveItem()
{
    const QString title = trimHorizontalWhitespace(m_title->text());
    const QString path = trimHorizontalWhitespace(m_path->text());
    if (title.isEmpty() || path.isEmpty()) {
        m_dialogs.showAlert(QStringLiteral("Champs requis"),
                            QStringLiteral("Le titre et le lien ne doivent pas être vides."));
        return;
    }
    const QString notes = notesHTML(editorText());
    const LinkKind kind = kindOf(m_linkType);

    // Through the store's own operations, which apply the change to the records as they are on
    // disk now: another program may have saved since this form opened.
    if (m_editing) {
        // A record deleted while the form was open is not brought back: nothing is written.
        m_store.editItem(m_editedId, [&](LinkItem &item) {
            item.title = title;
            item.path = path;
            item.category = m_category;
            item.notes = notes;
            item.kind = kind;
        });
    } else {
        LinkItem item;
        item.id = QUuid::createUuid();
        item.title = title;
        item.path = path;
        item.category = m_category;
        item.notes = notes;
        item.createdAt = m_clock.now();
        item.isFavorite = false;
        item.kind = kind;
        m_store.addItem(std::move(item));
    }
    accept();
}

} // namespace fiva
