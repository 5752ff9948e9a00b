#pragma once

#include <QString>

namespace fiva::interchange {

// Converts notes between the plain text a person types and the form records store. That form
// belongs to the editing side, which this library does not link, so callers hand its functions over.
using NotesConversion = QString (*)(const QString &);

} // namespace fiva::interchange
