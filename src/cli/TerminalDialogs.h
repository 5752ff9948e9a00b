#pragma once

#include "platform/Dialogs.h"

namespace fiva::cli {

// Dialogs for a command-line run. Alerts with one button are printed on stderr, title then
// message. A confirmation with several buttons is asked on the terminal as a yes/no question in
// French ("[o/N]"), the first button meaning yes; without a terminal it is declined. There are no
// panels here: paths come from the command line, so every panel ends as cancelled.
class TerminalDialogs final : public Dialogs
{
public:
    AlertAnswer runAlert(const AlertRequest &request) override;
    void showOpenPanel(const OpenPanelRequest &request, OpenPanelDone done) override;
    void showSavePanel(const SavePanelRequest &request, SavePanelDone done) override;

    // Whether the last confirmation was declined only because nobody could be asked.
    bool lastConfirmationHadNoTerminal() const { return m_noTerminal; }

private:
    bool m_noTerminal = false;
};

} // namespace fiva::cli
