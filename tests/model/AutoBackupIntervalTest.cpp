#include "model/AutoBackupInterval.h"

#include <gtest/gtest.h>
#include <limits>

#include "support/QtPrinting.h"

using namespace fiva;

TEST(AutoBackupInterval, CasesInOrderWithSecondsAndLabels)
{
    const std::pair<double, const char *> expected[] = {
        {300, "5 minutes"}, {900, "15 minutes"}, {3600, "1 heure"}, {86400, "1 jour"}};
    ASSERT_EQ(allAutoBackupIntervals.size(), std::size(expected));
    for (std::size_t i = 0; i < allAutoBackupIntervals.size(); ++i) {
        EXPECT_EQ(rawValue(allAutoBackupIntervals[i]), expected[i].first);
        EXPECT_EQ(label(allAutoBackupIntervals[i]), QString::fromUtf8(expected[i].second));
        EXPECT_EQ(autoBackupIntervalFromRawValue(expected[i].first), allAutoBackupIntervals[i]);
    }
    for (double seconds : {0.0, -300.0, 299.0, 300.5, 600.0, 900.0000001, 7200.0, 86399.0,
                           std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()})
        EXPECT_FALSE(autoBackupIntervalFromRawValue(seconds).has_value()) << seconds;
}
