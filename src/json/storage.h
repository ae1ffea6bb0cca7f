#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "json/scan.h"
#include "json/value.h"
#include "support/bytes.h"

/// How trees are stored (private to json/).
///
/// A tree is a row of 16-byte nodes in document order: a container's node, then its elements, or
/// its keys and values by turns, each followed by the nodes of what it holds.  The seven nodes of
/// {"a":[1,true],"b":"x"} are:
///
///     0  object   2 members, 7 nodes with its own     {
///     1  string   "a", the first key                    "a":
///     2  array    2 elements, 3 nodes with its own        [
///     3  number   1                                         1,
///     4  boolean  true                                      true],
///     5  string   "b", the second key                   "b":
///     6  string   "x"                                     "x"}
///
/// A container knows how many nodes it covers, so stepping over it is one addition.  The texts of
/// strings and numbers are slices of blocks of bytes that the tree owns, for example of the parsed
/// input; each is followed by kTextPaddingBytes readable bytes.
///
/// A tree that was put together from others owns the blocks of all of them.  Where it holds a
/// container of one of those, its row has a link, a node that refers to the container's own.
namespace quorvane {

struct JsonNode {
    JsonKind kind = JsonKind::kNull;
    bool flag = false;       ///< Asked by name: is_plain, is_integer_node, is_true, is_link.
    std::uint32_t size = 0;  ///< Text: bytes.  Array: elements.  Object: members.
    union {
        const char* text = nullptr;  ///< String, number.
        std::size_t nodes;           ///< Array, object: how many it covers, its own included.
        const JsonNode* target;      ///< Link: the container, which is no link.
    };
};
static_assert(sizeof(JsonNode) == 16);

constexpr JsonNode boolean_node(bool value) { return {JsonKind::kBoolean, value, 0, {}}; }
/// `flag`: a string is plain, that is, nothing in it has to be escaped; a number is an integer.
inline JsonNode text_node(JsonKind kind, bool flag, std::string_view text) {
    return {kind, flag, static_cast<std::uint32_t>(text.size()), {text.data()}};
}
inline JsonNode link_node(const JsonNode& container) {
    return {container.kind, true, container.size, {.target = &container}};
}
/// `end` is where the nodes of the container at `node` end.
inline void make_container(JsonNode* node, JsonKind kind, std::size_t size, const JsonNode* end) {
    *node = {kind, false, static_cast<std::uint32_t>(size), {}};
    node->nodes = static_cast<std::size_t>(end - node);
}

inline std::string_view node_text(const JsonNode& node) { return {node.text, node.size}; }
inline bool is_container(const JsonNode& node) {
    return node.kind == JsonKind::kArray || node.kind == JsonKind::kObject;
}
inline bool is_plain(const JsonNode& string) { return string.flag; }
inline bool is_integer_node(const JsonNode& number) { return number.flag; }
inline bool is_true(const JsonNode& boolean) { return boolean.flag; }
inline bool is_link(const JsonNode& node) { return is_container(node) && node.flag; }

/// The node itself, or the container that its link refers to.
inline const JsonNode* follow_link(const JsonNode* node) {
    return is_link(*node) ? node->target : node;
}
/// The node after all those of the value at `node`.
inline const JsonNode* step_over(const JsonNode* node) {
    return node + (is_container(*node) && !is_link(*node) ? node->nodes : 1);
}

/// The door into the private parts of values and views.
struct JsonAccess {
    static JsonView view(const JsonNode* node) { return JsonView(node); }
    static const JsonNode* node(JsonView view) { return view.node_; }
    static JsonValue value(std::vector<ByteBuffer> blocks, const JsonNode* root) {
        return {std::move(blocks), root};
    }
    /// Takes the blocks out of `value`, which becomes null.
    static std::vector<ByteBuffer> take_blocks(JsonValue& value) {
        value.root_ = nullptr;
        return std::move(value.blocks_);
    }
};

}  // namespace quorvane
