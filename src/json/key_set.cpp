#include "json/key_set.h"

#include <sys/auxv.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>

namespace quorvane {
namespace {

std::uint64_t load_word(const char* at) {
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

// Both halves of the 128-bit product: every bit of the result depends on all of both factors.
std::uint64_t mix(std::uint64_t left, std::uint64_t right) {
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(left) * right;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

std::uint32_t hash_key(std::string_view key, const KeySeed& seed) {
    const char* at = key.data();
    std::size_t left_bytes = key.size();
    std::uint64_t hash = seed.words[0] ^ left_bytes;
    for (; left_bytes > 8; left_bytes -= 8, at += 8) {
        hash = mix(load_word(at) ^ seed.words[1], hash);
    }
    // Of the last word only the key's own bytes; an empty key is hashed with the quote after it.
    const std::size_t unused_bits = 64 - 8 * std::max<std::size_t>(left_bytes, 1);
    const bool little = std::endian::native == std::endian::little;
    const std::uint64_t word = load_word(at);
    return static_cast<std::uint32_t>(
        mix((little ? word << unused_bits : word >> unused_bits) ^ seed.words[1], hash));
}

}  // namespace

KeySeed key_seed() {
    // The kernel gives every process 16 random bytes (getauxval(3)).  The C library's stack guard
    // comes from them too; nothing derived from them leaves the process.
    KeySeed seed;
    std::memcpy(&seed, std::bit_cast<const void*>(getauxval(AT_RANDOM)), sizeof seed);
    return seed;
}

bool KeySet::add(const JsonNode* key, const KeySeed& seed) {
    ++count_;
    // An only key has nothing to be compared with; it enters the table together with the second.
    if (count_ == 1) return true;
    if (count_ == 2) {
        const JsonNode* const first_key = object_ + 1;
        std::memset(first_slots_.data(), 0, sizeof first_slots_);
        static_cast<void>(insert(first_key, seed));
    }
    if (2 * count_ > slot_count_) grow();
    return insert(key, seed);
}

bool KeySet::insert(const JsonNode* key, const KeySeed& seed) {
    const std::string_view text = node_text(*key);
    const std::uint32_t hash = hash_key(text, seed);
    std::size_t at = hash & (slot_count_ - 1);
    for (; slots_[at].key_offset != 0; at = (at + 1) & (slot_count_ - 1)) {
        if (slots_[at].hash == hash && node_text(object_[slots_[at].key_offset]) == text)
            return false;
    }
    slots_[at] = {hash, static_cast<std::uint32_t>(key - object_)};
    return true;
}

void KeySet::grow() {
    std::vector<Slot> larger(4 * slot_count_);
    for (const Slot& slot : std::span(slots_, slot_count_)) {
        if (slot.key_offset == 0) continue;
        std::size_t at = slot.hash & (larger.size() - 1);
        while (larger[at].key_offset != 0) at = (at + 1) & (larger.size() - 1);
        larger[at] = slot;
    }
    more_slots_.swap(larger);
    slots_ = more_slots_.data();
    slot_count_ = more_slots_.size();
}

}  // namespace quorvane
