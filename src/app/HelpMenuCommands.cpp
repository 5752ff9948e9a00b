#include "app/HelpMenuCommands.h"

#include "app/Resources.h"
#include "platform/Dialogs.h"
#include "platform/Workspace.h"

#include <QUrl>

namespace fiva {

HelpMenuCommands::HelpMenuCommands(const Resources &resources, Dialogs &dialogs, Workspace &workspace)
    : m_resources(resources), m_dialogs(dialogs), m_workspace(workspace)
{
}

void HelpMenuCommands::openHelpDocument()
{
    openDocument(QStringLiteral("Aide-Fiva.pdf"), QStringLiteral("Fichier d’aide introuvable"),
                 QStringLiteral("Ajoutez Aide-Fiva.pdf dans les Resources de l’application."));
}

void HelpMenuCommands::openLicenceDocument()
{
    openDocument(QStringLiteral("licence.html"), QStringLiteral("Impossible d’ouvrir la licence"),
                 QStringLiteral("Le fichier license.html est introuvable dans l'application."));
}

void HelpMenuCommands::openWebPage(const QString &address)
{
    const QUrl url(address, QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty())
        return;
    m_workspace.openUrl(url);
}

void HelpMenuCommands::openDocument(const QString &fileName, const QString &message,
                                    const QString &informativeText)
{
    const std::optional<QString> path = m_resources.find(fileName);
    if (!path) {
        m_dialogs.runAlert(
            AlertRequest{message, informativeText, AlertStyle::warning, {QStringLiteral("OK")}, {}});
        return;
    }
    m_workspace.openPath(*path);
}

} // namespace fiva
