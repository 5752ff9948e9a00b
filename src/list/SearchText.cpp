#include "list/SearchText.h"

#include <cstdint>
#include <memory>
#include <unicode/ubrk.h>

namespace fiva {

namespace {

struct CloseBreakIterator
{
    void operator()(UBreakIterator *iterator) const { ubrk_close(iterator); }
};

// ICU's character iterator follows Unicode's extended grapheme cluster rules as written, which look
// at the characters alone. Qt's boundaries also depend on the script Qt guesses for the surrounding
// text, so that "👍" would be a whole character in "नमस्ते 👍🏽" but not in "hello 👍🏽",
// and the engine's reuse of earlier matches would disagree with a fresh search. One iterator per thread: the
// engine scans on two, and opening one costs more than many checks.
UBreakIterator *characterBreaks()
{
    thread_local const std::unique_ptr<UBreakIterator, CloseBreakIterator> iterator = [] {
        UErrorCode status = U_ZERO_ERROR;
        UBreakIterator *opened = ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status);
        if (U_FAILURE(status)) {
            ubrk_close(opened);
            opened = nullptr;
        }
        return std::unique_ptr<UBreakIterator, CloseBreakIterator>(opened);
    }();
    return iterator.get();
}

constexpr char16_t capitalSigma = u'\u03A3';

char32_t codePointAt(QStringView text, qsizetype i)
{
    const QChar c = text[i];
    if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate())
        return QChar::surrogateToUcs4(c, text[i + 1]);
    return c.unicode();
}

char32_t codePointBefore(QStringView text, qsizetype i, qsizetype *start)
{
    const QChar c = text[i - 1];
    if (c.isLowSurrogate() && i >= 2 && text[i - 2].isHighSurrogate()) {
        *start = i - 2;
        return QChar::surrogateToUcs4(text[i - 2], c);
    }
    *start = i - 1;
    return c.unicode();
}

bool isCased(char32_t c)
{
    switch (QChar::category(c)) {
    case QChar::Letter_Uppercase:
    case QChar::Letter_Lowercase:
    case QChar::Letter_Titlecase:
        return true;
    default:
        return QChar::isLower(c) || QChar::isUpper(c);
    }
}

// Case_Ignorable: marks, format characters, modifiers, and the word-internal punctuation
// (apostrophes, full stops, colons, middle dots) that Unicode lets sit inside a word.
bool isCaseIgnorable(char32_t c)
{
    switch (QChar::category(c)) {
    case QChar::Mark_NonSpacing:
    case QChar::Mark_Enclosing:
    case QChar::Other_Format:
    case QChar::Letter_Modifier:
    case QChar::Symbol_Modifier:
        return true;
    default:
        break;
    }
    switch (c) {
    case 0x0027:
    case 0x002E:
    case 0x003A:
    case 0x00B7:
    case 0x0387:
    case 0x055F:
    case 0x05F4:
    case 0x2018:
    case 0x2019:
    case 0x2024:
    case 0x2027:
    case 0xFE13:
    case 0xFE52:
    case 0xFE55:
    case 0xFF07:
    case 0xFF0E:
    case 0xFF1A:
        return true;
    default:
        return false;
    }
}

// Unicode's Final_Sigma condition: a cased letter (then case-ignorables) before, and no cased letter
// (after case-ignorables) following.
bool isFinalSigma(QStringView text, qsizetype at)
{
    qsizetype i = at;
    bool casedBefore = false;
    while (i > 0) {
        qsizetype start = 0;
        const char32_t c = codePointBefore(text, i, &start);
        i = start;
        if (isCaseIgnorable(c))
            continue;
        casedBefore = isCased(c);
        break;
    }
    if (!casedBefore)
        return false;
    i = at + 1;
    while (i < text.size()) {
        const char32_t c = codePointAt(text, i);
        i += QChar::requiresSurrogates(c) ? 2 : 1;
        if (isCaseIgnorable(c))
            continue;
        return !isCased(c);
    }
    return true;
}

QString fullLowercase(const QString &text)
{
    if (!text.contains(QChar(capitalSigma)))
        return text.toLower();
    // Qt's mapping has no context, so lowering the pieces between capital sigmas one by one gives
    // the same text as lowering the whole; only the sigmas themselves need their neighbours.
    QString lowered;
    lowered.reserve(text.size());
    qsizetype pieceStart = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] != QChar(capitalSigma))
            continue;
        lowered += QStringView(text).sliced(pieceStart, i - pieceStart).toString().toLower();
        lowered += QChar(isFinalSigma(text, i) ? u'\u03C2' : u'\u03C3');
        pieceStart = i + 1;
    }
    lowered += QStringView(text).sliced(pieceStart).toString().toLower();
    return lowered;
}

} // namespace

QString searchKey(const QString &text)
{
    return fullLowercase(text).normalized(QString::NormalizationForm_C);
}

bool isCharacterBoundary(QStringView text, qsizetype position)
{
    if (position <= 0 || position >= text.size())
        return true;
    const char16_t before = text[position - 1].unicode(), after = text[position].unicode();
    // Nothing below U+0300 joins its neighbour but CR with LF.
    if (before < 0x300 && after < 0x300)
        return !(before == u'\r' && after == u'\n');
    // No rule looks further back than a run of non-ASCII characters, nor further ahead than the
    // next character: asking about that window alone keeps long fields cheap and gives the same
    // answer as the whole text.
    qsizetype start = position - 1;
    while (start > 0 && text[start].unicode() >= 0x80)
        --start;
    qsizetype end = position;
    while (end < text.size() && text[end].unicode() >= 0x80)
        ++end;
    if (end < text.size())
        ++end;
    UBreakIterator *breaks = characterBreaks();
    if (!breaks || end - start > INT32_MAX)
        return !QChar::isLowSurrogate(after);
    UErrorCode status = U_ZERO_ERROR;
    ubrk_setText(breaks, text.utf16() + start, static_cast<int32_t>(end - start), &status);
    if (U_FAILURE(status))
        return !QChar::isLowSurrogate(after);
    return ubrk_isBoundary(breaks, static_cast<int32_t>(position - start)) != 0;
}

bool containsWholeCharacters(QStringView haystack, QStringView needle)
{
    if (needle.isEmpty())
        return true;
    for (qsizetype from = haystack.indexOf(needle); from >= 0; from = haystack.indexOf(needle, from + 1)) {
        if (isCharacterBoundary(haystack, from) && isCharacterBoundary(haystack, from + needle.size()))
            return true;
    }
    return false;
}

} // namespace fiva
