#pragma once

#include "model/Timestamp.h"

#include <QString>
#include <QUuid>

namespace fiva {

struct BackupLog
{
    QUuid id;
    Timestamp date;
    QString filePath;
    qint64 fileSize = 0;

    friend bool operator==(const BackupLog &, const BackupLog &) = default;
};

} // namespace fiva
