#pragma once

#include <QString>

namespace fiva {

// Where Fiva keeps its files. The store asks this instead of the desktop so that tests can point
// it at a temporary folder.
class Paths
{
public:
    virtual ~Paths() = default;

    // The user's application-support folder (AS). It may not exist yet; empty when the desktop
    // provides none.
    virtual QString applicationSupportFolder() const = 0;
    // A folder for short-lived working files.
    virtual QString temporaryFolder() const = 0;
};

// The desktop's folders: AS is the XDG data folder ($XDG_DATA_HOME, else ~/.local/share).
class DesktopPaths final : public Paths
{
public:
    QString applicationSupportFolder() const override;
    QString temporaryFolder() const override;
};

// Fixed folders, for tests and for tools that are told where to work.
class FixedPaths final : public Paths
{
public:
    FixedPaths(QString applicationSupportFolder, QString temporaryFolder);

    QString applicationSupportFolder() const override { return m_applicationSupportFolder; }
    QString temporaryFolder() const override { return m_temporaryFolder; }

private:
    QString m_applicationSupportFolder;
    QString m_temporaryFolder;
};

} // namespace fiva
