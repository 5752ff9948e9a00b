#include <cstdio>
#include <gtest/gtest.h>
#include <string>

namespace {

std::string probe(const std::string &environment)
{
    const std::string command = "env -u GLIBC_TUNABLES " + environment + " " PROBE " 'a b' -c";
    std::FILE *pipe = ::popen(command.c_str(), "r");
    std::string output;
    char buffer[512];
    while (pipe && std::fgets(buffer, sizeof buffer, pipe))
        output += buffer;
    if (pipe)
        ::pclose(pipe);
    return output;
}

TEST(AllocatorTuning, StartsOnceMoreWithTheSettingsAndPassesOnTheUsersOwn)
{
    const struct
    {
        const char *environment;
        const char *expected; // allocator | passed on | leftovers | arguments
    } cases[] = {
        {"", "tuned|(unset)||a b|-c"},
        {"GLIBC_TUNABLES=", "tuned|||a b|-c"},
        {"GLIBC_TUNABLES=glibc.rtld.nns=2", "tuned|glibc.rtld.nns=2||a b|-c"},
        // The user's own allocator settings win: no restart.
        {"GLIBC_TUNABLES=glibc.malloc.arena_max=2", "plain|glibc.malloc.arena_max=2||a b|-c"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(probe(c.environment), c.expected) << c.environment;
}

} // namespace
