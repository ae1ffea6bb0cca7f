#include "support/memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace quorvane {
namespace {

// Sizes on both sides of where blocks come from another place: the few kilobytes of the start,
// the heap, its large blocks.
constexpr std::array<std::size_t, 6> kSizes = {1, 40, 600, 3'500, 200'000, 2'000'000};

// Whether a growing block keeps its bytes and its neighbour's, and all is given back.
bool grow_a_block() {
    bool sound = true;
    const std::size_t before = memory_in_use();
    auto* block = static_cast<char*>(reallocate(nullptr, kSizes.front()));
    auto* neighbour = static_cast<char*>(allocate(16));
    std::memset(neighbour, 'n', 16);
    std::size_t held = kSizes.front();
    std::memset(block, 'b', held);
    for (const std::size_t size : kSizes) {
        block = static_cast<char*>(reallocate(block, size));
        sound &= std::count(block, block + held, 'b') == static_cast<std::ptrdiff_t>(held);
        std::memset(block, 'b', size);
        sound &= std::count(neighbour, neighbour + 16, 'n') == 16;
        held = size;
    }
    release(block);
    release(neighbour);
    // Empty blocks are blocks, and fill the room of the start to its last byte.
    for (int i = 0; i < 1000; ++i) release(allocate(0));
    // What came from the room of the start stays counted, and that is less than 4 KiB.
    return sound && memory_in_use() - before < 4096;
}

// Run before everything else, while the room of the start is still empty.
struct Start {
    bool sound = grow_a_block();
};
__attribute__((init_priority(101))) const Start start;

TEST(Memory, GrowingBlocksKeepTheirBytes) {
    EXPECT_TRUE(start.sound);
    EXPECT_TRUE(grow_a_block());
}

}  // namespace
}  // namespace quorvane
