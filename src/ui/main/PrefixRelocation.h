#pragma once

#include <QObject>

#include <thread>

class QWidget;

namespace fiva {

class Dialogs;
class HealthMonitor;
class LinkStore;

// "Réparer les dossiers déplacés…": from the latest health pass, finds the vanished folders that
// broken records share and, for each one with a likely new place, shows how many records the
// replacement would repair and how many would stay broken, then replaces the prefix in one store
// operation when the user agrees. The proposals are worked out on a worker thread. Deletes itself
// when done.
class PrefixRelocation final : public QObject
{
    Q_OBJECT
public:
    static PrefixRelocation *start(LinkStore &store, Dialogs &dialogs, const HealthMonitor &health,
                                   QWidget *parent);
    ~PrefixRelocation() override;

Q_SIGNALS:
    void finished();

private:
    PrefixRelocation(LinkStore &store, Dialogs &dialogs, QWidget *parent);

    LinkStore &m_store;
    Dialogs &m_dialogs;
    std::jthread m_worker;
};

} // namespace fiva
