#include "store/Console.h"

#include "store/BackupFiles.h"

#include <QByteArray>
#include <QString>

#include <cstdio>

namespace fiva::console {

namespace {

void writeLine(const QString &line)
{
    const QByteArray bytes = line.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}

} // namespace

void print(QStringView message, QStringView description)
{
    // What a person reads is French: a file's failure given in the system's words is said again.
    const QString text = description.toString();
    writeLine(message.toString() + u' ' + backup::frenchReason(text).value_or(text) + u'\n');
}

void print(QStringView message)
{
    writeLine(message.toString() + u'\n');
}

} // namespace fiva::console
