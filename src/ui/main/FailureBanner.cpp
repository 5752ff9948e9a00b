#include "ui/main/FailureBanner.h"

#include "store/LinkStore.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>

namespace fiva {

FailureBanner::FailureBanner(LinkStore &store, QWidget *parent) : QWidget(parent), m_store(store)
{
    setObjectName(QStringLiteral("failureBanner"));
    setAttribute(Qt::WA_StyledBackground);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 6, 6, 6);
    m_text = new QLabel(this);
    m_text->setObjectName(QStringLiteral("failureBannerText"));
    m_text->setWordWrap(true);
    m_text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_undo = new QPushButton(QStringLiteral("Annuler la restauration"), this);
    m_undo->setObjectName(QStringLiteral("undoRestoreButton"));
    m_close = new QToolButton(this);
    m_close->setObjectName(QStringLiteral("closeFailureBanner"));
    m_close->setText(QStringLiteral("✕"));
    m_close->setToolTip(QStringLiteral("Fermer"));
    m_close->setAutoRaise(true);
    layout->addWidget(m_text, 1);
    layout->addWidget(m_undo);
    layout->addWidget(m_close, 0, Qt::AlignTop);
    hide();

    connect(m_close, &QToolButton::clicked, this, &QWidget::hide);
    connect(m_undo, &QPushButton::clicked, this, [this] { m_store.undoRestore(); });
    connect(&m_store, &LinkStore::failureReported, this,
            [this](const QString &sentence) { showMessage(sentence, Tone::failure, false); });
    connect(&m_store, &LinkStore::restoreCompleted, this, [this](const QString &location) {
        showMessage(
            QStringLiteral("Les données ont été restaurées depuis « ") + QFileInfo(location).fileName() +
                QStringLiteral(" ». Les anciennes fiches ont été mises de côté : vous pouvez revenir en "
                               "arrière."),
            Tone::information, true);
    });
    connect(&m_store, &LinkStore::restoreUndone, this, [this] {
        showMessage(
            QStringLiteral("La restauration a été annulée : les fiches d'avant sont revenues. Les copies "
                           "de pièces jointes qu'elle avait ajoutées restent dans le dossier des pièces "
                           "jointes."),
            Tone::information, false);
    });
    if (!m_store.startupFailure().isEmpty())
        showMessage(m_store.startupFailure(), Tone::failure, false);
}

QString FailureBanner::text() const
{
    return m_text->text();
}

void FailureBanner::showMessage(const QString &text, Tone tone, bool offerUndo)
{
    m_text->setText(text);
    m_undo->setVisible(offerUndo);
    setStyleSheet(
        tone == Tone::failure
            ? QStringLiteral("#failureBanner { background: #fde2e1; border-bottom: 1px solid #e5a3a0; }"
                             " #failureBannerText { color: #5c1a17; }")
            : QStringLiteral("#failureBanner { background: #e3effd; border-bottom: 1px solid #a6c4ea; }"
                             " #failureBannerText { color: #173a5c; }"));
    show();
}

} // namespace fiva
