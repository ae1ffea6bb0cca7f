#include "json/value.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

#include "json/number.h"
#include "json/storage.h"
#include "json/utf8.h"

namespace quorvane {
namespace {

constexpr JsonNode kNullNode{};
constexpr JsonNode kTrueNode{NodeKind::kBoolean, true, 0, {}};
constexpr JsonNode kFalseNode{NodeKind::kBoolean, false, 0, {}};

const JsonNode* node_of_kind(JsonView view, NodeKind kind) {
    const JsonNode* const node = JsonAccess::node(view);
    return node != nullptr && node->kind == kind ? node : nullptr;
}

bool nothing_to_escape(std::string_view padded) {
    std::size_t at = 0;
    while (at < padded.size()) {
        const std::size_t run = scan::text_run(padded.data() + at);
        at += run;
        if (run < scan::kWidth) break;
    }
    return at >= padded.size();
}

// Fills a new storage: nodes and texts one behind the other.
struct Builder {
    explicit Builder(JsonStorage* made) : storage(made), node(made->nodes), text(made->texts) {}

    std::string_view keep(std::string_view bytes) {
        if (!bytes.empty()) std::memcpy(text, bytes.data(), bytes.size());
        const std::string_view kept(text, bytes.size());
        text += bytes.size();
        return kept;
    }
    void add_string(std::string_view bytes) {
        const std::string_view kept = keep(bytes);
        std::memset(text, 0, kTextPadding);
        *node++ = text_node(NodeKind::kString, nothing_to_escape(kept), kept);
    }
    // A scalar or a link is copied, texts stay where they are; a container is linked to.
    void add_reference(const JsonNode* value) {
        *node = *value;
        if (is_container(*value)) {
            *node = JsonNode{NodeKind::kLink, false, 0, {}};
            node->target = value;
        }
        ++node;
    }
    // A scalar or container with all that it holds, on nodes and texts of this storage alone.
    void add_copy(const JsonNode* value) {
        value = resolve(value);
        JsonNode* const copy = node++;
        *copy = *value;
        if (value->kind == NodeKind::kString || value->kind == NodeKind::kNumber) {
            copy->text = keep(node_text(*value)).data();
        } else if (is_container(*value)) {
            const std::size_t parts = value->kind == NodeKind::kObject ? 2 : 1;
            const JsonNode* part = value + 1;
            for (std::size_t i = 0; i < value->size * parts; ++i) {
                add_copy(part);
                part = step_over(part);
            }
            copy->nodes = static_cast<std::size_t>(node - copy);
        }
    }

    // Makes `root` the container of the nodes behind it, which hold no containers but by links.
    void finish(JsonNode* root, NodeKind kind, std::size_t size) const {
        *root = container_node(kind, size, static_cast<std::size_t>(node - root));
    }

    JsonStorage* storage;
    JsonNode* node;
    char* text;
};

struct TreeSize {
    std::size_t nodes = 0;
    std::size_t text_bytes = 0;
};

TreeSize tree_size(const JsonNode* value) {
    value = resolve(value);
    TreeSize total{1, 0};
    if (value->kind == NodeKind::kString || value->kind == NodeKind::kNumber) {
        total.text_bytes = value->size;
    } else if (is_container(*value)) {
        const JsonNode* const end = value + value->nodes;
        for (const JsonNode* part = value + 1; part != end; part = step_over(part)) {
            const TreeSize size = tree_size(part);
            total.nodes += size.nodes;
            total.text_bytes += size.text_bytes;
        }
    }
    return total;
}

// Arrays have no keys.  The storages of the values join that of the new node.
JsonValue make_container(NodeKind kind, const std::vector<std::string_view>& keys,
                         std::vector<JsonValue> values) {
    std::size_t key_bytes = 0;
    for (const std::string_view key : keys) key_bytes += key.size();

    const std::size_t node_count = 1 + keys.size() + values.size();
    Builder builder(make_storage(node_count, key_bytes));
    JsonStorage* ring = builder.storage;
    JsonNode* const root = builder.node++;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (!keys.empty()) builder.add_string(keys[i]);
        builder.add_reference(JsonAccess::node(values[i].view()));
        ring = join_rings(ring, JsonAccess::take_ring(values[i]));
    }
    builder.finish(root, kind, values.size());
    return JsonAccess::value(ring, root);
}

JsonValue make_text_value(NodeKind kind, bool flag, std::string_view text) {
    Builder builder(make_storage(1, text.size()));
    if (kind == NodeKind::kString) {
        builder.add_string(text);
    } else {
        *builder.node = text_node(kind, flag, builder.keep(text));
    }
    return JsonAccess::value(builder.storage, builder.storage->nodes);
}

}  // namespace

// Reading.

JsonKind JsonView::kind() const {
    return node_ == nullptr ? JsonKind::kNull : static_cast<JsonKind>(node_->kind);
}

std::string_view JsonView::text() const {
    const JsonNode* const node = node_of_kind(*this, NodeKind::kString);
    return node == nullptr ? std::string_view() : node_text(*node);
}

bool JsonView::boolean() const {
    const JsonNode* const node = node_of_kind(*this, NodeKind::kBoolean);
    return node != nullptr && node->flag;
}

JsonNumber JsonView::number() const {
    const JsonNode* const node = node_of_kind(*this, NodeKind::kNumber);
    if (node == nullptr) return {};
    JsonNumber number{.text = node_text(*node), .is_integer = node->flag};
    const std::optional<std::int64_t> value =
        number.is_integer ? integer_value(number.text) : std::nullopt;
    number.integer = value.value_or(0);
    number.fits = value.has_value();
    return number;
}

std::int64_t JsonView::integer() const { return number().integer; }

std::size_t JsonView::size() const {
    return node_ != nullptr && is_container(*node_) ? node_->size : 0;
}

JsonElements JsonView::elements() const {
    const JsonNode* const array = node_of_kind(*this, NodeKind::kArray);
    return JsonElements(array == nullptr ? JsonElements::Iterator()
                                         : JsonElements::Iterator(array + 1, array->size));
}

JsonMembers JsonView::members() const {
    const JsonNode* const object = node_of_kind(*this, NodeKind::kObject);
    return JsonMembers(object == nullptr ? JsonMembers::Iterator()
                                         : JsonMembers::Iterator(object + 1, object->size));
}

JsonView JsonElements::Iterator::operator*() const { return JsonAccess::view(resolve(node_)); }

JsonElements::Iterator& JsonElements::Iterator::operator++() {
    node_ = step_over(node_);
    --left_;
    return *this;
}

JsonMember JsonMembers::Iterator::operator*() const {
    return {node_text(*key_), JsonAccess::view(resolve(key_ + 1))};
}

JsonMembers::Iterator& JsonMembers::Iterator::operator++() {
    key_ = step_over(key_ + 1);
    --left_;
    return *this;
}

JsonView JsonValue::view() const { return JsonAccess::view(root_ == nullptr ? &kNullNode : root_); }

void JsonValue::release_storage() { release_ring(storage_); }

// Constructing.

JsonValue json_null() { return {}; }

JsonValue json_bool(bool value) {
    return JsonAccess::value(nullptr, value ? &kTrueNode : &kFalseNode);
}

JsonValue json_string(std::string_view text) {
    if (!is_valid_utf8(text)) return {};
    return make_text_value(NodeKind::kString, false, text);
}

JsonValue json_integer(std::int64_t value) {
    char digits[24];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, value);
    return make_text_value(NodeKind::kNumber, true, {digits, end.ptr});
}

JsonValue json_number_text(std::string_view text) {
    const char* const end = text.data() + text.size();
    const NumberScan scan = scan_number(text.data(), end);
    if (!scan.valid || scan.end != end) return {};
    return make_text_value(NodeKind::kNumber, scan.is_integer, text);
}

JsonValue json_array(std::vector<JsonValue> elements) {
    return make_container(NodeKind::kArray, {}, std::move(elements));
}

JsonValue json_object(std::vector<std::string_view> keys, std::vector<JsonValue> values) {
    if (keys.size() != values.size()) return {};
    if (!std::all_of(keys.begin(), keys.end(), is_valid_utf8)) return {};
    return make_container(NodeKind::kObject, keys, std::move(values));
}

JsonValue json_copy(JsonView value) {
    const JsonNode* const root = JsonAccess::node(value);
    if (root == nullptr) return {};
    const TreeSize size = tree_size(root);
    Builder builder(make_storage(size.nodes, size.text_bytes));
    builder.add_copy(root);
    return JsonAccess::value(builder.storage, builder.storage->nodes);
}

// Looking up.

JsonView json_member(JsonView object, std::string_view key) {
    for (const JsonMember member : object.members()) {
        if (member.key == key) return member.value;
    }
    return {};
}

bool json_has_member(JsonView object, std::string_view key) {
    return json_member(object, key).present();
}

std::string_view json_get_string(JsonView object, std::string_view key) {
    return json_member(object, key).text();
}

// Taking apart.

JsonValue json_take_member(JsonValue object, std::string_view key) {
    const JsonView member = json_member(object, key);
    if (!member.present()) return {};
    return JsonAccess::value(JsonAccess::take_ring(object), JsonAccess::node(member));
}

JsonValue json_without_members(JsonValue object, std::span<const std::string_view> keys) {
    const JsonView view = object;
    Builder builder(make_storage(1 + 2 * (view.is_object() ? view.size() : 0), 0));
    JsonNode* const root = builder.node++;
    std::size_t kept = 0;
    const JsonNode* key = JsonAccess::node(view) + 1;
    for (const JsonMember member : view.members()) {
        if (std::find(keys.begin(), keys.end(), member.key) == keys.end()) {
            builder.add_reference(key);
            builder.add_reference(key + 1);
            ++kept;
        }
        key = step_over(key + 1);
    }
    builder.finish(root, NodeKind::kObject, kept);
    return JsonAccess::value(join_rings(builder.storage, JsonAccess::take_ring(object)), root);
}

}  // namespace quorvane
