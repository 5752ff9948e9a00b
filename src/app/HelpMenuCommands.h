#pragma once

#include <QString>

namespace fiva {

class Dialogs;
class Resources;
class Workspace;

// What the help menu does: open the shipped help and licence documents with the user's default
// application, or say that they are missing, and open pages of the maker's site.
class HelpMenuCommands final
{
public:
    HelpMenuCommands(const Resources &resources, Dialogs &dialogs, Workspace &workspace);

    void openHelpDocument();
    void openLicenceDocument();
    // An address that does not parse does nothing and shows nothing.
    void openWebPage(const QString &address);

private:
    void openDocument(const QString &fileName, const QString &message, const QString &informativeText);

    const Resources &m_resources;
    Dialogs &m_dialogs;
    Workspace &m_workspace;
};

} // namespace fiva
