#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "json/storage.h"

/// Finds a key that stands twice in an object, while the object is being parsed (private to
/// json/).
///
/// Up to kScannedKeys keys are told apart by a tag of one byte each, eight looked at in one step.
/// Beyond that an open table takes over, hashed with a seed that nobody outside can know, so that
/// keys chosen to collide cost no more than others.
namespace quorvane {

/// The seed of one parse, drawn from the kernel when the first table is built.
struct KeySeed {
    std::uint64_t words[2] = {};
    bool drawn = false;
};

class KeySet {
  public:
    /// Of the object whose node is `object`; its members follow as they are parsed.
    explicit KeySet(const JsonNode* object) : object_(object) {}
    KeySet(const KeySet&) = delete;
    KeySet& operator=(const KeySet&) = delete;
    ~KeySet() { release(slots_); }

    /// Takes in the object's next key, a node behind the members before it.  False when the
    /// object has an equal key.
    [[nodiscard]] bool add(const JsonNode* key, KeySeed& seed) {
        return count_ < kScannedKeys ? add_tag(key) : add_slot(key, seed);
    }

  private:
    static constexpr std::size_t kScannedKeys = 16;

    struct Slot {
        std::uint32_t hash;
        std::uint32_t key;  // Nodes behind the object's own; 0 is an empty slot.
    };

    static Slot* make_slots(std::size_t count);  // All empty.

    bool add_tag(const JsonNode* key);
    [[gnu::noinline]] bool follows_equal(const JsonNode* key) const;
    bool add_slot(const JsonNode* key, KeySeed& seed);
    void grow_table();
    [[nodiscard]] std::size_t find_slot(std::uint32_t hash, const JsonNode* key) const;

    const JsonNode* object_;
    std::size_t count_ = 0;
    // The newest in the lowest byte; 0 where there is none yet.
    std::array<std::uint64_t, kScannedKeys / 8> tags_{};
    Slot* slots_ = nullptr;
    std::size_t slot_count_ = 0;  // 0, or a power of two, at least twice as many as there are keys.
};

}  // namespace quorvane
