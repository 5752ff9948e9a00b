#include "store/StoredNotes.h"

#include "model/NotesMarkup.h"

namespace fiva {

QString notesHTML(const QString &text)
{
    QString body = text;
    body.replace(u'\n', QStringLiteral("<br>"));
    return notesHead.toString() + body + notesTail.toString();
}

QString notesPlainText(const QString &stored)
{
    QString text = stored;
    const qsizetype open = stored.indexOf(u"<p>");
    if (open >= 0) {
        const qsizetype start = open + 3;
        const qsizetype close = stored.lastIndexOf(u"</p>");
        // A last "</p>" that starts inside or before the first "<p>" marks no paragraph.
        if (close >= start)
            text = stored.sliced(start, close - start);
    }
    text.replace(QStringLiteral("<br>"), QStringLiteral("\n"));
    return text.trimmed();
}

} // namespace fiva
