#include "app/MainWindowPlaceholder.h"

#include "ui/settings/BackupHistoryView.h"

#include <QDialog>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace fiva {

MainWindowPlaceholder::MainWindowPlaceholder(LinkStore &store, Workspace &workspace, QWidget *parent)
    : QWidget(parent), m_store(store), m_workspace(workspace)
{
    auto *layout = new QVBoxLayout(this);
    layout->addStretch(1);
    auto *notice = new QLabel(
        QStringLiteral("Fenêtre principale provisoire : la liste des fiches arrive bientôt."), this);
    notice->setObjectName(QStringLiteral("placeholderNotice"));
    notice->setAlignment(Qt::AlignCenter);
    layout->addWidget(notice);
    auto *history = new QPushButton(QStringLiteral("Historique des sauvegardes"), this);
    history->setObjectName(QStringLiteral("showBackupHistory"));
    layout->addWidget(history, 0, Qt::AlignHCenter);
    layout->addStretch(1);
    connect(history, &QPushButton::clicked, this, &MainWindowPlaceholder::showBackupHistory);
}

void MainWindowPlaceholder::showBackupHistory()
{
    auto *sheet = new QDialog(window());
    sheet->setObjectName(QStringLiteral("backupHistorySheet"));
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->setWindowModality(Qt::WindowModal);
    auto *layout = new QVBoxLayout(sheet);
    layout->setContentsMargins(0, 0, 0, 0);
    auto *view = new BackupHistoryView(m_store, m_workspace, sheet);
    layout->addWidget(view);
    sheet->setWindowTitle(view->windowTitle());
    connect(view, &BackupHistoryView::dismissRequested, sheet, &QDialog::accept);
    sheet->open();
}

} // namespace fiva
