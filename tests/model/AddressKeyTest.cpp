#include "model/AddressKey.h"

#include <gtest/gtest.h>

namespace fiva {
namespace {

using namespace Qt::StringLiterals;

struct KeyCase
{
    QString address;
    QString key;
};

TEST(AddressKey, NormalisesOnlyWhatDoesNotChangeTheTarget)
{
    const KeyCase cases[] = {
        {u"  https://example.org/a  "_s, u"https://example.org/a"_s},
        {u"HTTPS://Example.ORG/Path/"_s, u"https://example.org/Path"_s},
        {u"http://example.org///"_s, u"http://example.org//"_s},
        {u"https://User@Example.org/X?Q=1"_s, u"https://User@example.org/X?Q=1"_s},
        {u"HTTP://Jean@Example.COM/Page"_s, u"http://Jean@example.com/Page"_s},
        {u"https://EXAMPLE.org?Q=A"_s, u"https://example.org?Q=A"_s},
        {u"https://EXAMPLE.org#Top"_s, u"https://example.org#Top"_s},
        {u"/Home/Anne/Docs/"_s, u"/Home/Anne/Docs"_s},
        {u"/"_s, u"/"_s},
        {u"\t/tmp/a:b/\n"_s, u"/tmp/a:b"_s},
        {u"MAILTO:Anne@Example.org"_s, u"mailto:Anne@Example.org"_s},
        {u"FILE:///Home/Anne/"_s, u"file:///Home/Anne"_s},
        {u"é:x/"_s, u"é:x"_s},
        {u""_s, u""_s},
        {u"   "_s, u""_s},
        {u"https://"_s, u"https://"_s},
    };
    for (const KeyCase &c : cases)
        EXPECT_EQ(addressKey(c.address), c.key) << c.address.toStdString();
}

} // namespace
} // namespace fiva
