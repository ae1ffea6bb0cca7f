#include "json/storage.h"

#include <new>

#include "support/memory.h"

namespace quorvane {
namespace {

constexpr std::size_t kHeaderSize = (sizeof(JsonStorage) + 15) / 16 * 16;

void release_storage(JsonStorage* storage) {
    storage->~JsonStorage();
    release(storage);
}

}  // namespace

JsonStorage* make_storage(std::size_t node_count, std::size_t text_bytes) {
    const std::size_t texts_at = kHeaderSize + node_count * sizeof(JsonNode);
    void* const block = allocate(texts_at + text_bytes + kTextPadding);
    char* const bytes = static_cast<char*>(block);
    auto* const storage = new (block) JsonStorage{
        .next = nullptr,
        .input = {},
        .nodes = reinterpret_cast<JsonNode*>(bytes + kHeaderSize),
        .texts = bytes + texts_at,
    };
    storage->next = storage;
    return storage;
}

void release_ring(JsonStorage* storage) {
    JsonStorage* at = storage->next;
    while (at != storage) {
        JsonStorage* const next = at->next;
        release_storage(at);
        at = next;
    }
    release_storage(storage);
}

JsonStorage* join_rings(JsonStorage* left, JsonStorage* right) {
    if (left == nullptr) return right;
    if (right != nullptr) std::swap(left->next, right->next);
    return left;
}

}  // namespace quorvane
