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
    // Where the file panels start when none has been used yet; empty leaves the choice to the panel.
    virtual QString documentsFolder() const = 0;
};

// The desktop's folders: AS is the XDG data folder ($XDG_DATA_HOME, else ~/.local/share), the
// documents folder XDG's (XDG_DOCUMENTS_DIR, else ~/Documents), or the home folder when that is missing.
class DesktopPaths final : public Paths
{
public:
    QString applicationSupportFolder() const override;
    QString temporaryFolder() const override;
    QString documentsFolder() const override;
};

// Fixed folders, for tests and for tools that are told where to work.
class FixedPaths final : public Paths
{
public:
    FixedPaths(QString applicationSupportFolder, QString temporaryFolder, QString documentsFolder = {});

    QString applicationSupportFolder() const override { return m_applicationSupportFolder; }
    QString temporaryFolder() const override { return m_temporaryFolder; }
    QString documentsFolder() const override { return m_documentsFolder; }

private:
    QString m_applicationSupportFolder;
    QString m_temporaryFolder;
    QString m_documentsFolder;
};

} // namespace fiva
