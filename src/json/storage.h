#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "json/scan.h"
#include "json/value.h"
#include "support/bytes.h"

/// How trees are stored (private to json/).
///
/// A tree is a row of 16-byte nodes in document order: a container's node, then its elements, or
/// its keys and values by turns, each followed by what it holds itself.  A container knows how
/// many nodes it covers, so that stepping over it is one addition.  Texts are slices of the
/// parsed input or of the storage, each followed by kTextPadding readable bytes.
///
/// Storages are joined in rings: a tree that was put together from others owns all of theirs,
/// and reaches their nodes through link nodes.  Joining two rings swaps two pointers.
namespace quorvane {

enum class NodeKind : std::uint8_t {
    kNull = 0,
    kString = 1,
    kNumber = 2,
    kBoolean = 3,
    kArray = 4,
    kObject = 5,
    kLink = 6,  ///< Stands for the node it points to, which is a container and never a link.
};

struct JsonNode {
    NodeKind kind = NodeKind::kNull;
    bool flag = false;  ///< String: nothing to escape.  Number: an integer.  Boolean: its value.
    std::uint32_t size = 0;  ///< Text: bytes.  Array: elements.  Object: members.
    union {
        const char* text = nullptr;  ///< String, number.
        const JsonNode* target;      ///< Link.
        std::size_t nodes;           ///< Array, object: how many it covers, its own included.
    };
};
static_assert(sizeof(JsonNode) == 16);

inline JsonNode text_node(NodeKind kind, bool flag, std::string_view text) {
    JsonNode node{kind, flag, static_cast<std::uint32_t>(text.size()), {}};
    node.text = text.data();
    return node;
}

inline JsonNode container_node(NodeKind kind, std::size_t size, std::size_t nodes) {
    JsonNode node{kind, false, static_cast<std::uint32_t>(size), {}};
    node.nodes = nodes;
    return node;
}

inline bool is_container(const JsonNode& node) {
    return node.kind == NodeKind::kArray || node.kind == NodeKind::kObject;
}
inline std::string_view node_text(const JsonNode& node) { return {node.text, node.size}; }

/// The node itself, or what its link stands for.
inline const JsonNode* resolve(const JsonNode* node) {
    return node->kind == NodeKind::kLink ? node->target : node;
}
/// The node behind the whole value at `node`.
inline const JsonNode* step_over(const JsonNode* node) {
    return node + (is_container(*node) ? node->nodes : 1);
}

/// One block of memory: this record, its nodes, its texts.
struct JsonStorage {
    JsonStorage* next;  ///< The ring; its own address when it stands alone.
    ByteBuffer input;   ///< An adopted input that texts are slices of, or empty.
    JsonNode* nodes;    ///< Room for as many as were asked for; not filled.
    char* texts;        ///< Room for as many bytes as were asked for, and the padding.
};

/// A storage that stands alone.  Its rooms are uninitialised and cost nothing until touched.
[[nodiscard]] JsonStorage* make_storage(std::size_t node_count, std::size_t text_bytes);

/// Gives back every storage of the ring.
void release_ring(JsonStorage* storage);

/// Joins two rings into one; either may be null.  Returns one of its storages, or null.
[[nodiscard]] JsonStorage* join_rings(JsonStorage* left, JsonStorage* right);

/// The door into the private parts of values and views.
struct JsonAccess {
    static JsonView view(const JsonNode* node) { return JsonView(node); }
    static const JsonNode* node(JsonView view) { return view.node_; }
    static JsonValue value(JsonStorage* storage, const JsonNode* root) { return {storage, root}; }
    static const JsonNode* root(const JsonValue& value) { return value.root_; }
    /// Takes the ring out of `value`, which becomes null.
    static JsonStorage* take_ring(JsonValue& value) {
        value.root_ = nullptr;
        return std::exchange(value.storage_, nullptr);
    }
};

}  // namespace quorvane
