#pragma once

#include <QObject>

class QProgressDialog;
class QWidget;

namespace fiva {

class Dialogs;
class HealthMonitor;
class LinkStore;
class WebChecker;

// "Vérifier les pages web…": checks the address of every web record, a few at a time, behind a
// progress dialog that can cancel it. Dead pages then show as broken; for each page that answered
// at another address, the user may point the record at it. Nothing is sent before the user asks.
// Deletes itself when done.
class WebCheckRun final : public QObject
{
    Q_OBJECT
public:
    static WebCheckRun *start(LinkStore &store, Dialogs &dialogs, HealthMonitor &health, QWidget *parent);

Q_SIGNALS:
    void finished();

private:
    WebCheckRun(LinkStore &store, Dialogs &dialogs, HealthMonitor &health, QWidget *parent);
    void done();

    LinkStore &m_store;
    Dialogs &m_dialogs;
    HealthMonitor &m_health;
    WebChecker *m_checker = nullptr;
    QProgressDialog *m_progress = nullptr;
};

} // namespace fiva
