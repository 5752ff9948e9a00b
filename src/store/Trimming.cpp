#include "store/Trimming.h"

namespace fiva {

namespace {

bool isHorizontalWhitespace(QChar c)
{
    return c == u'\t' || c.category() == QChar::Separator_Space;
}

} // namespace

QString trimHorizontalWhitespace(const QString &text)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isHorizontalWhitespace(text.at(begin)))
        ++begin;
    while (end > begin && isHorizontalWhitespace(text.at(end - 1)))
        --end;
    return text.sliced(begin, end - begin);
}

} // namespace fiva
