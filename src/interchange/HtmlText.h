#pragma once

#include <QByteArrayView>
#include <QString>

namespace fiva::interchange {

enum class TextEncoding { utf8, latin1 };

enum class Whitespace {
    collapse,       // every run becomes one space, as a browser shows a title
    keepLineBreaks, // line breaks stay (as line feeds), for descriptions
    keep,           // left alone, for addresses
};

// Text of a bookmark file as a person reads it: bytes decoded (invalid UTF-8 becomes U+FFFD),
// character references resolved, white space handled as asked, ends trimmed.
QString decodeHtmlText(QByteArrayView bytes, TextEncoding encoding, Whitespace whitespace);

// Escapes & < > and " so that the text is safe both as element content and inside a double-quoted
// attribute.
QString escapeHtml(QStringView text);

} // namespace fiva::interchange
