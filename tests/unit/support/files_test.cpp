#include "support/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "support/temp_dir.h"

namespace quorvane {
namespace {

namespace fs = std::filesystem;

TEST(ParentDirectory, CutsTheLastName) {
    const char* const cases[][2] = {{"", "."},    {"name", "."},  {"/name", "/"},  {"a/b/", "a"},
                                    {"///", "/"}, {"a//b", "a/"}, {"a/b///", "a"}, {"/a/b", "/a"}};
    for (const auto& [path, parent] : cases) EXPECT_EQ(parent_directory(path), parent) << path;
}

TEST(ReadWholeFile, ReadsRegularFilesOnly) {
    const test::TempDir dir;
    dir.write("full", std::string_view("a\0b", 3));
    dir.write("empty", "");
    ASSERT_EQ(mkfifo(dir.file("fifo").c_str(), 0600), 0);
    EXPECT_EQ(read_whole_file(dir.file("full")).view(), std::string_view("a\0b", 3));
    for (const char* name : {"empty", "fifo", "missing", "."}) {
        EXPECT_TRUE(read_whole_file(dir.file(name)).empty()) << name;
    }
    EXPECT_TRUE(read_whole_file("/dev/zero").empty());
    EXPECT_EQ(stat_path(dir.file("fifo")).kind, FileKind::kOther);
    EXPECT_EQ(stat_path(dir.file("missing")).size, -1);
    EXPECT_GT(stat_path(dir.file("full")).modified_ns, 1'000'000'000'000'000'000);
}

TEST(WriteFileAtomic, ReplacesOrLeavesAlone) {
    const test::TempDir dir;
    const std::string stale = ".tmp." + std::to_string(getpid());

    EXPECT_TRUE(write_file_atomic(dir.file("new/deep/name"), "one"));
    EXPECT_EQ(dir.read("new/deep/name"), "one");

    // A stale temporary file, or an empty folder in its place, is cleared; one that cannot be
    // removed makes the write fail and leaves the target as it was.
    dir.write("name" + stale, "left over");
    EXPECT_TRUE(write_file_atomic(dir.file("name"), "two"));
    fs::create_directory(dir.file("name" + stale));
    EXPECT_TRUE(write_file_atomic(dir.file("name"), "three"));
    fs::create_directories(dir.file("name" + stale + "/full"));
    EXPECT_FALSE(write_file_atomic(dir.file("name"), "four"));
    EXPECT_EQ(dir.read("name"), "three");

    // A symbolic link at the temporary name is removed, never written through.
    dir.write("victim", "untouched");
    fs::create_symlink(dir.file("victim"), dir.file("other" + stale));
    EXPECT_TRUE(write_file_atomic(dir.file("other"), "mine"));
    EXPECT_EQ(dir.read("victim"), "untouched");

    // A regular file on the way, and a folder as the target.
    EXPECT_FALSE(write_file_atomic(dir.file("victim/below"), "x"));
    EXPECT_FALSE(write_file_atomic(dir.file("new/deep"), "x"));
    EXPECT_FALSE(fs::exists(dir.file("new/deep" + stale)));
}

}  // namespace
}  // namespace quorvane
