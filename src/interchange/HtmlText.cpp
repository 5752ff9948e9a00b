#include "interchange/HtmlText.h"

#include <array>
#include <utility>

namespace fiva::interchange {

namespace {

// The references browsers write in bookmark files, and the accented letters and punctuation that
// hand-made French files use. Anything else stays as written, which keeps it readable.
constexpr std::array<std::pair<std::u16string_view, char16_t>, 52> namedReferences{{
    {u"amp", u'&'},      {u"lt", u'<'},       {u"gt", u'>'},       {u"quot", u'"'},     {u"apos", u'\''},
    {u"nbsp", 0x00A0},   {u"laquo", 0x00AB},  {u"raquo", 0x00BB},  {u"copy", 0x00A9},   {u"reg", 0x00AE},
    {u"deg", 0x00B0},    {u"middot", 0x00B7}, {u"agrave", 0x00E0}, {u"aacute", 0x00E1}, {u"acirc", 0x00E2},
    {u"auml", 0x00E4},   {u"ccedil", 0x00E7}, {u"egrave", 0x00E8}, {u"eacute", 0x00E9}, {u"ecirc", 0x00EA},
    {u"euml", 0x00EB},   {u"icirc", 0x00EE},  {u"iuml", 0x00EF},   {u"ocirc", 0x00F4},  {u"ouml", 0x00F6},
    {u"ugrave", 0x00F9}, {u"ucirc", 0x00FB},  {u"uuml", 0x00FC},   {u"yuml", 0x00FF},   {u"Agrave", 0x00C0},
    {u"Acirc", 0x00C2},  {u"Ccedil", 0x00C7}, {u"Egrave", 0x00C8}, {u"Eacute", 0x00C9}, {u"Ecirc", 0x00CA},
    {u"Icirc", 0x00CE},  {u"Ocirc", 0x00D4},  {u"Ugrave", 0x00D9}, {u"Ucirc", 0x00DB},  {u"oelig", 0x0153},
    {u"OElig", 0x0152},  {u"ndash", 0x2013},  {u"mdash", 0x2014},  {u"lsquo", 0x2018},  {u"rsquo", 0x2019},
    {u"ldquo", 0x201C},  {u"rdquo", 0x201D},  {u"hellip", 0x2026}, {u"euro", 0x20AC},   {u"trade", 0x2122},
    {u"szlig", 0x00DF},  {u"ntilde", 0x00F1},
}};

bool isAsciiAlnum(char16_t c)
{
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9');
}

bool isHtmlSpace(char16_t c)
{
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r' || c == u'\f';
}

// Reads the reference that starts at text[at] == '&'. Returns the number of characters it takes,
// 0 when there is none, and appends what it stands for.
qsizetype appendReference(QStringView text, qsizetype at, QString &out)
{
    const qsizetype n = text.size();
    qsizetype i = at + 1;
    if (i < n && text[i] == u'#') {
        ++i;
        const bool hex = i < n && (text[i] == u'x' || text[i] == u'X');
        if (hex)
            ++i;
        const qsizetype digitsStart = i;
        char32_t value = 0;
        for (; i < n; ++i) {
            const char16_t c = text[i].unicode();
            int digit = -1;
            if (c >= u'0' && c <= u'9')
                digit = c - u'0';
            else if (hex && c >= u'a' && c <= u'f')
                digit = c - u'a' + 10;
            else if (hex && c >= u'A' && c <= u'F')
                digit = c - u'A' + 10;
            if (digit < 0)
                break;
            // Saturate instead of overflowing; anything this large is not a character.
            if (value <= 0x10FFFF)
                value = value * (hex ? 16 : 10) + char32_t(digit);
        }
        if (i == digitsStart)
            return 0;
        if (i < n && text[i] == u';')
            ++i;
        const bool valid = value != 0 && value <= 0x10FFFF && !(value >= 0xD800 && value <= 0xDFFF);
        const char32_t ch = valid ? value : char32_t(0xFFFD);
        out.append(QStringView(QChar::fromUcs4(ch)));
        return i - at;
    }
    const qsizetype nameStart = i;
    while (i < n && isAsciiAlnum(text[i].unicode()) && i - nameStart < 10)
        ++i;
    const std::u16string_view name(reinterpret_cast<const char16_t *>(text.data() + nameStart),
                                   std::size_t(i - nameStart));
    const bool semicolon = i < n && text[i] == u';';
    for (const auto &[refName, ch] : namedReferences) {
        if (refName != name)
            continue;
        // Old files write "&amp" without its semicolon; accept that for the four basic ones, but
        // not where it could be part of a query such as "&copy=2".
        const bool basic = name == u"amp" || name == u"lt" || name == u"gt" || name == u"quot";
        const bool legacyEnd = i >= n || (!isAsciiAlnum(text[i].unicode()) && text[i] != u'=');
        if (!semicolon && !(basic && legacyEnd))
            return 0;
        out.append(QChar(ch));
        return i - at + (semicolon ? 1 : 0);
    }
    return 0;
}

} // namespace

QString decodeHtmlText(QByteArrayView bytes, TextEncoding encoding, Whitespace whitespace)
{
    const QString raw =
        encoding == TextEncoding::latin1 ? QString::fromLatin1(bytes) : QString::fromUtf8(bytes);
    const bool keepLineBreaks = whitespace == Whitespace::keepLineBreaks;
    const bool collapse = whitespace == Whitespace::collapse;
    const bool plain = !raw.contains(u'&') &&
                       (whitespace == Whitespace::keep || (!raw.contains(u'\n') && !raw.contains(u'\r') &&
                                                           !raw.contains(u'\t') && !raw.contains(u"  ")));
    if (plain)
        return raw.trimmed();

    QString out;
    out.reserve(raw.size());
    const QStringView text(raw);
    bool pendingSpace = false;
    for (qsizetype i = 0; i < text.size();) {
        const char16_t c = text[i].unicode();
        if (keepLineBreaks && (c == u'\r' || c == u'\n')) {
            out.append(u'\n');
            i += (c == u'\r' && i + 1 < text.size() && text[i + 1] == u'\n') ? 2 : 1;
            continue;
        }
        if (collapse && isHtmlSpace(c)) {
            pendingSpace = true;
            ++i;
            continue;
        }
        if (pendingSpace && !out.isEmpty())
            out.append(u' ');
        pendingSpace = false;
        if (c == u'&') {
            if (const qsizetype used = appendReference(text, i, out)) {
                i += used;
                continue;
            }
        }
        out.append(QChar(c));
        ++i;
    }
    return out.trimmed();
}

QString escapeHtml(QStringView text)
{
    QString out;
    out.reserve(text.size() + text.size() / 8);
    for (const QChar ch : text) {
        switch (ch.unicode()) {
        case u'&':
            out.append(u"&amp;");
            break;
        case u'<':
            out.append(u"&lt;");
            break;
        case u'>':
            out.append(u"&gt;");
            break;
        case u'"':
            out.append(u"&quot;");
            break;
        default:
            out.append(ch);
        }
    }
    return out;
}

} // namespace fiva::interchange
