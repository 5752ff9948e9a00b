#include <gtest/gtest.h>

TEST(CliPlaceholder, BinaryIsKnown)
{
    ASSERT_NE(std::getenv("FIVA_CLI"), nullptr);
}
