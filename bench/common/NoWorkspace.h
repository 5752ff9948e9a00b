#pragma once

#include "platform/Workspace.h"

namespace fiva::bench {

// The store opens nothing during a measurement.
class NoWorkspace final : public Workspace
{
public:
    bool openUrl(const QUrl &) override { return false; }
    bool openPath(const QString &) override { return false; }
    bool showFolder(const QString &) override { return false; }
    bool revealItem(const QString &) override { return false; }
};

} // namespace fiva::bench
