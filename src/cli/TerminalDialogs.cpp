#include "cli/TerminalDialogs.h"

#include <QByteArray>

#include <unistd.h>

#include <cstdio>

namespace fiva::cli {

namespace {

void printErr(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
    std::fflush(stderr);
}

} // namespace

AlertAnswer TerminalDialogs::runAlert(const AlertRequest &request)
{
    if (request.buttons.size() <= 1) {
        printErr(request.message + u'\n' +
                 (request.informativeText.isEmpty() ? QString() : request.informativeText + u'\n'));
        return {};
    }
    const int decline = static_cast<int>(request.buttons.size()) - 1;
    m_noTerminal = !::isatty(STDIN_FILENO);
    if (m_noTerminal)
        return {decline, {}};
    printErr(request.message + u' ' + request.informativeText + QStringLiteral(" [o/N] "));
    char line[64] = {};
    if (!std::fgets(line, sizeof line, stdin))
        return {decline, {}};
    const QString answer = QString::fromUtf8(line).trimmed().toLower();
    const bool yes = answer == u"o" || answer == u"oui";
    return {yes ? 0 : decline, {}};
}

void TerminalDialogs::showOpenPanel(const OpenPanelRequest &, OpenPanelDone done)
{
    if (done)
        done(std::nullopt);
}

void TerminalDialogs::showSavePanel(const SavePanelRequest &, SavePanelDone done)
{
    if (done)
        done(std::nullopt);
}

} // namespace fiva::cli
