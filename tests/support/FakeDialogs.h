#pragma once

#include "platform/Dialogs.h"

#include <QString>

#include <deque>
#include <optional>
#include <utility>
#include <vector>

namespace fiva::test {

// Dialogs that answer from a script and remember what they were asked. Alerts take the next
// scripted answer (the first button when the script is empty). Panels either answer at once with
// the next scripted choice or, with holdPanels, keep their callback until finishSavePanel or
// finishOpenPanel is called, as the desktop's non-blocking panels do.
class FakeDialogs final : public Dialogs
{
public:
    AlertAnswer runAlert(const AlertRequest &request) override
    {
        alerts.push_back(request);
        return next(alertAnswers);
    }

    void showOpenPanel(const OpenPanelRequest &request, OpenPanelDone done) override
    {
        openPanels.push_back(request);
        m_openDone = std::move(done);
        if (!holdPanels)
            finishOpenPanel(next(openChoices));
    }

    void showSavePanel(const SavePanelRequest &request, SavePanelDone done) override
    {
        savePanels.push_back(request);
        m_saveDone = std::move(done);
        if (!holdPanels)
            finishSavePanel(next(saveChoices));
    }

    // Ends the pending save panel with this choice (nothing means cancelled).
    void finishSavePanel(std::optional<QString> choice)
    {
        if (auto done = std::exchange(m_saveDone, nullptr))
            done(std::move(choice));
    }
    void finishOpenPanel(std::optional<QStringList> choice)
    {
        if (auto done = std::exchange(m_openDone, nullptr))
            done(std::move(choice));
    }
    bool savePanelPending() const { return static_cast<bool>(m_saveDone); }

    // Answers on cue.
    std::deque<AlertAnswer> alertAnswers;
    std::deque<std::optional<QString>> saveChoices;
    std::deque<std::optional<QStringList>> openChoices;
    bool holdPanels = false;

    // What was asked, in order.
    std::vector<AlertRequest> alerts;
    std::vector<OpenPanelRequest> openPanels;
    std::vector<SavePanelRequest> savePanels;

private:
    // The next scripted answer; without one, the first button or a cancelled panel.
    template <typename T> static T next(std::deque<T> &script)
    {
        if (script.empty())
            return T{};
        T answer = std::move(script.front());
        script.pop_front();
        return answer;
    }

    OpenPanelDone m_openDone;
    SavePanelDone m_saveDone;
};

} // namespace fiva::test
