#include "ui/main/BookmarkImportDialog.h"

#include "platform/Clock.h"
#include "store/LinkStore.h"
#include "store/StoredNotes.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QProgressDialog>
#include <QPushButton>
#include <QVBoxLayout>

namespace fiva {

namespace ic = interchange;

namespace {

// How many new categories the preview names before it only counts the rest.
constexpr int namedCategories = 8;

QString summaryText(const ic::ImportPlan &plan)
{
    QStringList lines;
    lines << QStringLiteral("Fiches à importer : %1").arg(plan.records.size());
    QString categories = QStringLiteral("Nouvelles catégories : %1").arg(plan.newCategories.size());
    if (!plan.newCategories.isEmpty()) {
        QStringList names = plan.newCategories.mid(0, namedCategories);
        if (plan.newCategories.size() > namedCategories)
            names << QStringLiteral("…");
        categories += QStringLiteral(" (") + names.join(QStringLiteral(", ")) + u')';
    }
    lines << categories;
    lines << QStringLiteral("Doublons ignorés : %1").arg(plan.duplicatesSkipped);
    lines << plan.skippedSummary();
    return lines.join(u'\n');
}

} // namespace

BookmarkImportDialog::BookmarkImportDialog(LinkStore &store, const Clock &clock, QByteArray file,
                                           const QString &fileName, QWidget *parent)
    : QDialog(parent), m_store(store), m_clock(clock), m_file(std::move(file))
{
    setObjectName(QStringLiteral("bookmarkImportSheet"));
    setWindowTitle(QStringLiteral("Importer des favoris"));
    setWindowModality(Qt::WindowModal);
    auto *layout = new QVBoxLayout(this);
    auto *source = new QLabel(QStringLiteral("Fichier : ") + fileName, this);
    source->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(source);
    m_summary = new QLabel(this);
    m_summary->setObjectName(QStringLiteral("importSummary"));
    m_summary->setWordWrap(true);
    layout->addWidget(m_summary);
    m_problems = new QLabel(this);
    m_problems->setObjectName(QStringLiteral("importProblems"));
    m_problems->setWordWrap(true);
    layout->addWidget(m_problems);
    m_keepRoots =
        new QCheckBox(QStringLiteral("Garder les dossiers racines du navigateur comme catégories"), this);
    m_keepRoots->setObjectName(QStringLiteral("keepRoots"));
    layout->addWidget(m_keepRoots);
    m_allowDuplicates = new QCheckBox(QStringLiteral("Importer aussi les liens déjà présents"), this);
    m_allowDuplicates->setObjectName(QStringLiteral("allowDuplicates"));
    layout->addWidget(m_allowDuplicates);
    auto *buttons = new QDialogButtonBox(this);
    m_import = buttons->addButton(QStringLiteral("Importer"), QDialogButtonBox::AcceptRole);
    buttons->addButton(QStringLiteral("Annuler"), QDialogButtonBox::RejectRole);
    layout->addWidget(buttons);

    connect(buttons, &QDialogButtonBox::accepted, this, [this] {
        importNow();
        accept();
    });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_keepRoots, &QCheckBox::toggled, this, &BookmarkImportDialog::preview);
    connect(m_allowDuplicates, &QCheckBox::toggled, this, &BookmarkImportDialog::preview);
    preview();
}

ic::ImportOptions BookmarkImportDialog::options() const
{
    return ic::ImportOptions{m_keepRoots->isChecked(), m_allowDuplicates->isChecked()};
}

ic::ImportContext BookmarkImportDialog::context(const QList<LinkItem> &items,
                                                const QStringList &categories) const
{
    ic::ImportContext context = ic::importContextFor(items, categories);
    context.importTime = m_clock.now();
    context.notesFromPlainText = notesHTML;
    return context;
}

void BookmarkImportDialog::preview()
{
    m_plannedItems = m_store.items();
    m_plannedCategories = m_store.categories();
    ic::ImportContext context = this->context(m_plannedItems, m_plannedCategories);
    // Shown only once reading has taken half a second; small files never show it.
    QProgressDialog progress(QStringLiteral("Lecture du fichier de favoris…"), QString(), 0, 1000, this);
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(500);
    progress.setAutoClose(false);
    progress.setValue(0);
    context.progress = [&progress](qint64 read, qint64 total) {
        progress.setValue(total > 0 ? int(read * 1000 / total) : 1000);
    };
    m_plan = ic::planBookmarkImport(m_file, context, options());
    progress.reset();

    m_summary->setText(summaryText(m_plan));
    const QStringList problems = m_plan.problems();
    m_problems->setText(problems.join(u'\n'));
    m_problems->setVisible(!problems.isEmpty());
    m_import->setEnabled(m_plan.recognized && !m_plan.records.isEmpty());
}

std::optional<int> BookmarkImportDialog::importNow()
{
    if (!m_plan.recognized)
        return std::nullopt;
    const ic::ImportOptions chosen = options();
    const auto saved =
        m_store.importRecords([&](const QList<LinkItem> &items, const QStringList &categories) {
            // Another writer saved since the preview: the duplicates are judged again on what is there
            // now. No progress bar here: it would run the event loop while the store holds its lock.
            if (items != m_plannedItems || categories != m_plannedCategories)
                m_plan = ic::planBookmarkImport(m_file, context(items, categories), chosen);
            return LinkStore::ImportBatch{m_plan.records, m_plan.newCategories};
        });
    if (!saved)
        return std::nullopt;
    return int(saved->records.size());
}

} // namespace fiva
