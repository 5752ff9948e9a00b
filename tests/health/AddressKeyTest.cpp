#include "health/AddressKey.h"

#include <gtest/gtest.h>

#include "HealthTestSupport.h"
#include "health/Duplicates.h"

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
        {u"http://example.org///"_s, u"http://example.org"_s},
        {u"https://User@Example.org/X?Q=1"_s, u"https://User@example.org/X?Q=1"_s},
        {u"https://EXAMPLE.org?Q=A"_s, u"https://example.org?Q=A"_s},
        {u"https://EXAMPLE.org#Top"_s, u"https://example.org#Top"_s},
        {u"/Home/Anne/Docs/"_s, u"/Home/Anne/Docs"_s},
        {u"/"_s, u"/"_s},
        {u"\t/tmp/a:b/\n"_s, u"/tmp/a:b"_s},
        {u"MAILTO:Anne@Example.org"_s, u"mailto:Anne@Example.org"_s},
        {u"é:x/"_s, u"é:x"_s},
        {u""_s, u""_s},
        {u"   "_s, u""_s},
        {u"https://"_s, u"https://"_s},
    };
    for (const KeyCase &c : cases)
        EXPECT_EQ(addressKey(c.address), c.key) << c.address.toStdString();
}

TEST(Duplicates, GroupsRecordsOfTheSameKeyInListOrder)
{
    using test::record;
    const QList<LinkItem> items{
        record(LinkKind::url, u"https://Example.org/a/"_s), // 0
        record(LinkKind::file, u"/doc/x.pdf"_s),            // 1
        record(LinkKind::url, u"https://example.org/A"_s),  // 2: path case matters
        record(LinkKind::file, u" /doc/x.pdf/"_s),          // 3
        record(LinkKind::url, u"HTTPS://EXAMPLE.ORG/a"_s),  // 4
        record(LinkKind::url, u""_s),                       // 5: empty paths are not duplicates
        record(LinkKind::url, u"  "_s),                     // 6
        record(LinkKind::file, u"/doc/x.pdf"_s),            // 7
    };
    const QList<QList<QUuid>> expected{{items[0].id, items[4].id}, {items[1].id, items[3].id, items[7].id}};
    EXPECT_EQ(findDuplicates(items), expected);
    EXPECT_TRUE(findDuplicates({items[0], items[1], items[2]}).isEmpty());
}

} // namespace
} // namespace fiva
