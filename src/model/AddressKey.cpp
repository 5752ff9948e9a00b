#include "model/AddressKey.h"

namespace fiva {

QString addressKey(QStringView address)
{
    QString key = address.trimmed().toString();
    const qsizetype colon = key.indexOf(u':');
    bool hasScheme = colon > 0 && key.at(0).isLetter() && key.at(0).unicode() < 128;
    for (qsizetype i = 1; hasScheme && i < colon; ++i) {
        const char16_t c = key.at(i).unicode();
        hasScheme = c < 128 && (QChar(c).isLetterOrNumber() || c == u'+' || c == u'-' || c == u'.');
    }
    if (hasScheme) {
        for (qsizetype i = 0; i < colon; ++i)
            key[i] = key.at(i).toLower();
        if (QStringView(key).sliced(colon).startsWith(u"://")) {
            const qsizetype hostStart = colon + 3;
            qsizetype hostEnd = hostStart;
            while (hostEnd < key.size() && key.at(hostEnd) != u'/' && key.at(hostEnd) != u'?' &&
                   key.at(hostEnd) != u'#')
                ++hostEnd;
            // A user name before "@" keeps its case; only the host name is case-blind.
            const qsizetype at = QStringView(key).sliced(hostStart, hostEnd - hostStart).lastIndexOf(u'@');
            for (qsizetype i = at < 0 ? hostStart : hostStart + at + 1; i < hostEnd; ++i)
                key[i] = key.at(i).toLower();
        }
    }
    // One "/" only: "/a//" names another page than "/a" on many servers.
    if (key.size() > 1 && key.endsWith(u'/') && !key.endsWith(u"://"))
        key.chop(1);
    return key;
}

} // namespace fiva
