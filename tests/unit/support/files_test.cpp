#include "support/files.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(ParentDirectory, CutsTheLastName) {
    const char* const cases[][2] = {{"", "."},    {"name", "."},  {"/name", "/"},
                                    {"///", "/"}, {"a//b", "a/"}, {"a/b///", "a"}};
    for (const auto& [path, parent] : cases) EXPECT_EQ(parent_directory(path), parent) << path;
}

// With regular files, links and FIFOs of a home the program itself is tested.
TEST(StatPath, TellsKindsSizesAndTimes) {
    EXPECT_EQ(stat_path("/proc/self/exe").kind, FileKind::kRegular);
    EXPECT_GT(stat_path("/proc/self/exe").modified_ns, 1'000'000'000'000'000'000);
    EXPECT_EQ(stat_path("/dev/zero").kind, FileKind::kOther);
    EXPECT_EQ(stat_path("/none").size, -1);
    for (const char* path : {"/dev/zero", "/", "/none"}) {
        EXPECT_TRUE(read_whole_file(path).empty()) << path;
    }
}

}  // namespace
}  // namespace quorvane
