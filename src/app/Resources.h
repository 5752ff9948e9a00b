#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace fiva {

// The documents shipped with Fiva, looked up by file name in a list of folders, first match wins.
// Nothing here is written by the program: a missing file stays missing until it is installed.
class Resources final
{
public:
    explicit Resources(QStringList folders);

    // Beside the program: <prefix>/share/fiva for an installed bin/fiva, then share/fiva next to
    // the executable, where the build puts the generated documents.
    static QStringList besideProgram(const QString &programFolder);

    const QStringList &folders() const { return m_folders; }
    // The full path of the first existing file of that name, or nothing.
    std::optional<QString> find(const QString &fileName) const;

private:
    QStringList m_folders;
};

} // namespace fiva
