#pragma once

#include <QString>
#include <QStringView>

namespace fiva {

// The form in which both the search text and the searched fields are compared: full Unicode
// lower-case mapping (special casings such as "İ" → "i̇", and the final-sigma rule Qt leaves out),
// then NFC so that canonically equivalent spellings become the same code units.
QString searchKey(const QString &text);

// Whether `needle` occurs in `haystack` as a run of whole user-perceived characters: a match may
// not start or end inside a grapheme cluster, so "e" is not found in "é" written as "e" + U+0301,
// nor "q" in "q́". Both arguments are expected in searchKey form.
bool containsWholeCharacters(QStringView haystack, QStringView needle);

// Whether an extended grapheme cluster boundary lies at `position` of `text` (both ends count as
// boundaries). The answer depends only on the characters, never on the script of the text around
// them, so a match found inside a longer query's match is always found on its own.
bool isCharacterBoundary(QStringView text, qsizetype position);

} // namespace fiva
