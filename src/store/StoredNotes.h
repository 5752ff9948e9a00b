#pragma once

#include <QString>

namespace fiva {

// Notes are stored as a small HTML document: a fixed head, the user's text with every line feed
// as "<br>" and nothing escaped, and a fixed tail. Empty notes are head + tail.
QString notesHTML(const QString &text);

// Back to the text the user typed: what lies between the first "<p>" and the last "</p>" (the
// whole text when either is missing or they overlap), "<br>" as line feeds, ends trimmed.
QString notesPlainText(const QString &stored);

} // namespace fiva
