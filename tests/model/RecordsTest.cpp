#include "model/AutoBackupInterval.h"
#include "model/LinkItem.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

#include "QtPrinting.h"

using namespace fiva;

TEST(AutoBackupInterval, CasesInOrderWithSecondsAndLabels)
{
    struct Expected
    {
        double seconds;
        const char *label;
    };
    const Expected expected[] = {
        {300, "5 minutes"}, {900, "15 minutes"}, {3600, "1 heure"}, {86400, "1 jour"}};
    ASSERT_EQ(allAutoBackupIntervals.size(), std::size(expected));
    for (std::size_t i = 0; i < allAutoBackupIntervals.size(); ++i) {
        const AutoBackupInterval interval = allAutoBackupIntervals[i];
        EXPECT_EQ(rawValue(interval), expected[i].seconds);
        EXPECT_EQ(label(interval), QString::fromUtf8(expected[i].label));
        EXPECT_EQ(autoBackupIntervalFromRawValue(expected[i].seconds), interval);
    }
}

TEST(AutoBackupInterval, OtherSecondsGiveNoValue)
{
    for (double seconds : {0.0, -300.0, 299.0, 300.5, 600.0, 900.0000001, 7200.0, 86399.0,
                           std::numeric_limits<double>::infinity(), std::nan("")}) {
        EXPECT_FALSE(autoBackupIntervalFromRawValue(seconds).has_value()) << seconds;
    }
}

TEST(LinkKind, NamesRoundTripAndUnknownNamesAreRejected)
{
    for (LinkKind kind : {LinkKind::url, LinkKind::file, LinkKind::directory})
        EXPECT_EQ(linkKindFromName(linkKindName(kind)), kind);
    EXPECT_EQ(linkKindName(LinkKind::directory), QStringLiteral("directory"));
    for (const char *name : {"", "URL", "File", "dir", "folder", "url "})
        EXPECT_FALSE(linkKindFromName(QString::fromUtf8(name)).has_value()) << name;
}
