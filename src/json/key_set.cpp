#include "json/key_set.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>
#include <string>

#include "support/memory.h"
#include "support/random.h"

namespace quorvane {
namespace {

// No secret is needed where at most kScannedKeys keys can share a tag.
constexpr std::uint64_t kTagSeed[2] = {0x9E3779B97F4A7C15U, 0xC2B2AE3D27D4EB4FU};

std::uint64_t load_word(const char* at) {
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

// Masks that keep the first 0 to 8 bytes of a word loaded from memory.
constexpr std::array<std::uint64_t, 9> make_first_bytes() {
    std::array<std::uint64_t, 9> masks{};
    for (std::size_t count = 1; count < masks.size(); ++count) {
        const bool little = std::endian::native == std::endian::little;
        masks[count] =
            little ? ~std::uint64_t{0} >> (64 - 8 * count) : ~std::uint64_t{0} << (64 - 8 * count);
    }
    return masks;
}

constexpr std::array<std::uint64_t, 9> kFirstBytes = make_first_bytes();

// Both halves of the 128-bit product: every bit of the result depends on all of both factors.
std::uint64_t mix(std::uint64_t left, std::uint64_t right) {
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(left) * right;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

inline std::uint64_t hash_key(std::string_view key, const std::uint64_t (&seed)[2]) {
    const char* at = key.data();
    std::size_t left = key.size();
    std::uint64_t hash = seed[0] ^ left;
    for (; left > 16; left -= 16, at += 16) {
        hash = mix(load_word(at) ^ seed[1], load_word(at + 8) ^ hash);
    }
    // What is left, as its first and its last eight bytes; of fewer, all that there are.
    const std::uint64_t mask = kFirstBytes[std::min<std::size_t>(left, 8)];
    const std::uint64_t first = load_word(at) & mask;
    const std::uint64_t last = load_word(at + std::max<std::size_t>(left, 8) - 8) & mask;
    return mix(first ^ seed[1], last ^ hash);
}

// Whether one of the eight bytes of `word` is `byte`.
bool has_byte(std::uint64_t word, std::uint64_t byte) {
    constexpr std::uint64_t kOnes = 0x0101010101010101U;
    const std::uint64_t zero_where_equal = word ^ kOnes * byte;
    return ((zero_where_equal - kOnes) & ~zero_where_equal & kOnes << 7) != 0;
}

void draw(KeySeed& seed) {
    const std::optional<std::string> bytes = secure_random_bytes(sizeof seed.words);
    // A kernel that refuses leaves the addresses of this run, which are random too.
    if (bytes) {
        std::memcpy(seed.words, bytes->data(), sizeof seed.words);
    } else {
        seed.words[0] = reinterpret_cast<std::uintptr_t>(&seed) * kTagSeed[0];
        seed.words[1] = reinterpret_cast<std::uintptr_t>(&draw) * kTagSeed[1];
    }
    seed.drawn = true;
}

bool same_text(const JsonNode* left, const JsonNode* right) {
    return left->size == right->size && std::memcmp(left->text, right->text, left->size) == 0;
}

}  // namespace

bool KeySet::add_tag(const JsonNode* key) {
    const std::uint64_t hash = hash_key(node_text(*key), kTagSeed) >> 56;
    const std::uint64_t tag = hash == 0 ? 1 : hash;
    const bool tag_seen = has_byte(tags_[0], tag) || has_byte(tags_[1], tag);
    if (tag_seen && follows_equal(key)) return false;
    // Whole words are written, so that they can be read again at once.
    tags_[1] = tags_[1] << 8 | tags_[0] >> 56;
    tags_[0] = tags_[0] << 8 | tag;
    ++count_;
    return true;
}

bool KeySet::follows_equal(const JsonNode* key) const {
    for (const JsonNode* other = object_ + 1; other != key; other = step_over(other + 1)) {
        if (same_text(other, key)) return true;
    }
    return false;
}

bool KeySet::add_slot(const JsonNode* key, KeySeed& seed) {
    if (!seed.drawn) draw(seed);
    if (slots_ == nullptr) {
        // The keys that had tags only, all of them different.
        grow_table();
        const JsonNode* other = object_ + 1;
        for (; other != key; other = step_over(other + 1)) {
            const auto hash = static_cast<std::uint32_t>(hash_key(node_text(*other), seed.words));
            slots_[find_slot(hash, other)] = {hash, static_cast<std::uint32_t>(other - object_)};
        }
    }
    if (2 * (count_ + 1) > slot_count_) grow_table();
    const auto hash = static_cast<std::uint32_t>(hash_key(node_text(*key), seed.words));
    Slot& slot = slots_[find_slot(hash, key)];
    if (slot.key != 0) return false;
    slot = {hash, static_cast<std::uint32_t>(key - object_)};
    ++count_;
    return true;
}

// The slot that holds an equal key, or the empty one where `key` belongs.
std::size_t KeySet::find_slot(std::uint32_t hash, const JsonNode* key) const {
    const std::size_t mask = slot_count_ - 1;
    std::size_t at = hash & mask;
    while (slots_[at].key != 0) {
        if (slots_[at].hash == hash && same_text(object_ + slots_[at].key, key)) break;
        at = (at + 1) & mask;
    }
    return at;
}

void KeySet::grow_table() {
    constexpr std::size_t kFirst = 64;
    const std::size_t count = slots_ == nullptr ? kFirst : 4 * slot_count_;
    Slot* const slots = make_slots(count);
    if (slots_ != nullptr) {
        for (const Slot& slot : std::span(slots_, slot_count_)) {
            if (slot.key == 0) continue;
            std::size_t at = slot.hash & (count - 1);
            while (slots[at].key != 0) at = (at + 1) & (count - 1);
            slots[at] = slot;
        }
        release(slots_);
    }
    slots_ = slots;
    slot_count_ = count;
}

KeySet::Slot* KeySet::make_slots(std::size_t count) {
    const std::size_t size = count * sizeof(Slot);
    return static_cast<Slot*>(std::memset(allocate(size), 0, size));
}

}  // namespace quorvane
