#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "json/storage.h"

/// Finds a key that occurs twice in an object while the object is being parsed (private to json/).
///
/// An open table whose first slots are part of this object.  It is hashed with a seed that nobody
/// outside can know, so keys that were chosen to collide cost no more than others.
namespace quorvane {

/// Two random words, the same in every call of a process.
struct KeySeed {
    std::uint64_t words[2];
};
[[nodiscard]] KeySeed key_seed();

class KeySet {
  public:
    /// For the object whose node is `object`; its members follow as they are parsed.
    explicit KeySet(const JsonNode* object) : object_(object) {}
    KeySet(const KeySet&) = delete;
    KeySet& operator=(const KeySet&) = delete;

    /// Adds the object's next key, a node after the members before it.  False when the object
    /// has an equal key.
    [[nodiscard]] bool add(const JsonNode* key, const KeySeed& seed);

  private:
    struct Slot {
        std::uint32_t hash;
        std::uint32_t key_offset;  // Nodes after the object's own; 0 is an empty slot.
    };

    bool insert(const JsonNode* key, const KeySeed& seed);
    void grow();

    const JsonNode* object_;
    std::size_t count_ = 0;
    std::array<Slot, 32> first_slots_;  // Uninitialised until there is a second key.
    std::vector<Slot> more_slots_;
    Slot* slots_ = first_slots_.data();
    std::size_t slot_count_ = first_slots_.size();  // A power of two, at least twice `count_`.
};

}  // namespace quorvane
