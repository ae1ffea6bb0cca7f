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

struct Growth {
    bool kept = true;       // Every block held what the one before it held.
    bool unshared = true;   // Writing to it left its neighbour alone.
    bool gave_back = true;  // The count stood as before when all was released.
};

Growth grow_a_block() {
    Growth seen;
    const std::size_t before = memory_in_use();
    auto* block = static_cast<char*>(reallocate(nullptr, kSizes.front()));
    auto* neighbour = static_cast<char*>(allocate(16));
    std::memset(neighbour, 'n', 16);
    std::size_t held = kSizes.front();
    std::memset(block, 'b', held);
    for (const std::size_t size : kSizes) {
        block = static_cast<char*>(reallocate(block, size));
        seen.kept &= std::count(block, block + held, 'b') == static_cast<std::ptrdiff_t>(held);
        std::memset(block, 'b', size);
        seen.unshared &= std::count(neighbour, neighbour + 16, 'n') == 16;
        held = size;
    }
    release(block);
    release(neighbour);
    // Empty blocks are blocks, and fill the room of the start to its last byte.
    for (int i = 0; i < 1000; ++i) release(allocate(0));
    // What came from the room of the start stays counted, and that is less than 4 KiB.
    seen.gave_back = memory_in_use() - before < 4096;
    return seen;
}

// Run before everything else, while the room of the start is still empty.
__attribute__((init_priority(101))) const Growth at_start = grow_a_block();

void expect_sound(const Growth& seen) {
    EXPECT_TRUE(seen.kept);
    EXPECT_TRUE(seen.unshared);
    EXPECT_TRUE(seen.gave_back);
}

TEST(Memory, GrowingBlocksKeepTheirBytes) {
    expect_sound(at_start);
    expect_sound(grow_a_block());
}

}  // namespace
}  // namespace quorvane
