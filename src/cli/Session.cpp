#include "cli/Session.h"

namespace fiva::cli {

Session::Session() : m_store(m_paths, m_workspace, m_clock)
{
    m_store.setDialogs(&m_dialogs);
    QObject::connect(&m_store, &LinkStore::saveFailed, &m_store, [this] { m_saveFailed = true; });
}

} // namespace fiva::cli
