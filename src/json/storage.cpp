#include "json/storage.h"

#include <new>

#include "support/memory.h"

namespace quorvane {
namespace {

constexpr std::size_t kHeaderSize = (sizeof(JsonStorage) + 15) / 16 * 16;

void release_storage(JsonStorage* storage) {
    const std::size_t block_size = storage->block_size;
    const bool in_pages = storage->in_pages;
    storage->~JsonStorage();
    if (in_pages) {
        release_pages(storage, block_size);
    } else {
        release(storage);
    }
}

}  // namespace

JsonStorage* make_storage(std::size_t node_count, std::size_t text_bytes, StorageUse use) {
    const std::size_t texts_at = kHeaderSize + node_count * sizeof(JsonNode);
    const std::size_t block_size = texts_at + text_bytes + kTextPadding;
    const bool in_pages = use == StorageUse::kLarge;
    void* const block = in_pages ? allocate_pages(block_size) : allocate(block_size);
    char* const bytes = static_cast<char*>(block);
    auto* const storage = new (block) JsonStorage{
        .next = nullptr,
        .block_size = block_size,
        .in_pages = in_pages,
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
