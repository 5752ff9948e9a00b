#pragma once

#include "cli/Commands.h"
#include "cli/TerminalDialogs.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "platform/Workspace.h"
#include "store/LinkStore.h"

namespace fiva::cli {

// The store as the application opens it: the desktop's folders, the real clock, and the terminal
// in place of the desktop's dialogs. The CLI runs no event loop, so the automatic-backup timer
// never fires here. Failures during start-up are printed by the store; from then on a failed save
// decides the exit code.
class Session final
{
public:
    Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    LinkStore &store() { return m_store; }
    const Clock &clock() const { return m_clock; }
    TerminalDialogs &dialogs() { return m_dialogs; }
    bool saveFailed() const { return m_saveFailed; }
    int exitCode() const { return m_saveFailed ? exitFailure : exitOk; }

private:
    DesktopPaths m_paths;
    DesktopWorkspace m_workspace;
    SystemClock m_clock;
    TerminalDialogs m_dialogs;
    LinkStore m_store;
    bool m_saveFailed = false;
};

} // namespace fiva::cli
