#pragma once

#include "app/FivaApp.h"
#include "app/MainWindow.h"
#include "app/Resources.h"

#include "support/ScreenTest.h"

namespace fiva::test {

// The whole application over the screen tests' store folder, scripted dialogs, clock and settings,
// with two resource folders of its own.
class AppTest : public ScreenTest
{
protected:
    std::unique_ptr<FivaApp> launch(bool shown = false)
    {
        auto app = [this] {
            StdoutCapture quiet;
            return std::make_unique<FivaApp>(
                AppServices{m_paths, m_workspace, m_clock, m_dialogs, m_settings,
                            Resources({m_resources.path(), m_moreResources.path()})});
        }();
        if (shown) {
            app->mainWindow()->show();
            QCoreApplication::processEvents();
        }
        return app;
    }
    QString resource(const QString &name) const { return m_resources.filePath(name); }

    QTemporaryDir m_resources;
    QTemporaryDir m_moreResources;
};

} // namespace fiva::test
