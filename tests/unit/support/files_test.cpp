#include "support/files.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(ParentDirectory, CutsTheLastName) {
    const char* const cases[][2] = {{"", "."},    {"name", "."},  {"/name", "/"},
                                    {"///", "/"}, {"a//b", "a/"}, {"a/b///", "a"}};
    for (const auto& [path, parent] : cases) EXPECT_EQ(parent_directory(path), parent) << path;
}

}  // namespace
}  // namespace quorvane
