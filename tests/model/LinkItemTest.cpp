#include "model/LinkItem.h"

#include <gtest/gtest.h>

#include "support/QtPrinting.h"

using namespace fiva;

TEST(LinkKind, NamesRoundTripAndUnknownNamesAreRejected)
{
    for (LinkKind kind : {LinkKind::url, LinkKind::file, LinkKind::directory})
        EXPECT_EQ(linkKindFromName(linkKindName(kind)), kind);
    EXPECT_EQ(linkKindName(LinkKind::directory), QStringLiteral("directory"));
    for (const char *name : {"", "URL", "File", "dir", "folder", "url "})
        EXPECT_FALSE(linkKindFromName(QString::fromUtf8(name)).has_value()) << name;
}
