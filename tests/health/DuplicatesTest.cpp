#include "health/Duplicates.h"

#include <gtest/gtest.h>

#include "HealthTestSupport.h"

namespace fiva {
namespace {

using namespace Qt::StringLiterals;

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
