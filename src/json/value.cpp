#include "json/value.h"

#include <algorithm>
#include <cstring>

#include "json/number.h"
#include "json/storage.h"
#include "json/utf8.h"
#include "support/text.h"

namespace quorvane {
namespace {

constexpr JsonNode kNullNode{};
constexpr JsonNode kTrueNode = boolean_node(true);
constexpr JsonNode kFalseNode = boolean_node(false);

const JsonNode* node_of_kind(JsonView view, JsonKind kind) {
    const JsonNode* const node = JsonAccess::node(view);
    return node != nullptr && node->kind == kind ? node : nullptr;
}

// Fills a new block: a row of nodes, then their texts.
class Builder {
  public:
    Builder(std::size_t node_count, std::size_t text_bytes) {
        const std::size_t node_bytes = node_count * sizeof(JsonNode);
        char* const bytes = block_.spare(node_bytes + text_bytes + kTextPaddingBytes);
        root_ = node_ = reinterpret_cast<JsonNode*>(bytes);
        text_ = bytes + node_bytes;
    }

    // The root of a container that will be filled by the calls below.
    void open() { ++node_; }

    void add_string(std::string_view text) {
        const std::string_view kept = add_text(text);
        *node_++ = text_node(JsonKind::kString, scan::holds_plain_text(kept), kept);
    }
    void add_number(std::string_view text, bool is_integer) {
        *node_++ = text_node(JsonKind::kNumber, is_integer, add_text(text));
    }

    // A key or value of another tree, which stays where it is.
    void add_node(const JsonNode& node) { *node_++ = is_container(node) ? link_node(node) : node; }
    // A value whose blocks the new tree takes over.
    void add_value(JsonValue& value) {
        add_node(*JsonAccess::node(value));
        std::ranges::move(JsonAccess::take_blocks(value), std::back_inserter(blocks_));
    }

    JsonValue close(JsonKind kind, std::size_t size) {
        make_container(root_, kind, size, node_);
        return finish();
    }
    JsonValue finish() {
        blocks_.push_back(std::move(block_));
        return JsonAccess::value(std::move(blocks_), root_);
    }

  private:
    // Zeros after it: they end every search in it, until the next text takes their place.
    std::string_view add_text(std::string_view text) {
        char* const kept = text_;
        std::copy(text.begin(), text.end(), kept);
        text_ += text.size();
        std::memset(text_, 0, kTextPaddingBytes);
        return {kept, text.size()};
    }

    ByteBuffer block_;
    std::vector<ByteBuffer> blocks_;  // Of the values that are referred to.
    JsonNode* root_;
    JsonNode* node_;  // The next one, as `text_` is the next text.
    char* text_;
};

JsonValue make_number(std::string_view text, bool is_integer) {
    Builder builder(1, text.size());
    builder.add_number(text, is_integer);
    return builder.finish();
}

}  // namespace

// Reading.

JsonKind JsonView::kind() const { return node_ == nullptr ? JsonKind::kNull : node_->kind; }

std::string_view JsonView::text() const {
    const JsonNode* const node = node_of_kind(*this, JsonKind::kString);
    return node == nullptr ? std::string_view() : node_text(*node);
}

bool JsonView::boolean() const {
    const JsonNode* const node = node_of_kind(*this, JsonKind::kBoolean);
    return node != nullptr && is_true(*node);
}

JsonNumber JsonView::number() const {
    const JsonNode* const node = node_of_kind(*this, JsonKind::kNumber);
    if (node == nullptr) return {};
    JsonNumber number{.text = node_text(*node), .is_integer = is_integer_node(*node)};
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

JsonItems JsonView::items() const {
    JsonItems items;
    items.remaining_ = size();
    if (items.remaining_ > 0) items.node_ = node_ + 1;
    items.key_nodes_ = is_object() ? 1 : 0;
    return items;
}

JsonItem JsonItems::operator*() const {
    const std::string_view key = key_nodes_ == 0 ? std::string_view() : node_text(*node_);
    return {key, JsonAccess::view(follow_link(node_ + key_nodes_))};
}

JsonItems& JsonItems::operator++() {
    node_ = step_over(node_ + key_nodes_);
    --remaining_;
    return *this;
}

JsonView JsonValue::view() const { return JsonAccess::view(root_ == nullptr ? &kNullNode : root_); }

// Constructing.

JsonValue json_null() { return {}; }

JsonValue json_bool(bool value) { return JsonAccess::value({}, value ? &kTrueNode : &kFalseNode); }

JsonValue json_string(std::string_view text) {
    if (!is_valid_utf8(text)) return {};
    Builder builder(1, text.size());
    builder.add_string(text);
    return builder.finish();
}

JsonValue json_integer(std::int64_t value) { return make_number(std::to_string(value), true); }

JsonValue json_number_text(std::string_view text) {
    const char* const end = text.data() + text.size();
    const NumberScan literal = scan_number(text.data(), end);
    if (!literal.valid || literal.end != end) return {};
    return make_number(text, literal.is_integer);
}

JsonValue json_array(std::vector<JsonValue> elements) {
    Builder builder(1 + elements.size(), 0);
    builder.open();
    for (JsonValue& element : elements) builder.add_value(element);
    return builder.close(JsonKind::kArray, elements.size());
}

JsonValue json_object(std::vector<std::string_view> keys, std::vector<JsonValue> values) {
    if (keys.size() != values.size()) return {};
    if (!std::all_of(keys.begin(), keys.end(), is_valid_utf8)) return {};
    std::size_t key_bytes = 0;
    for (const std::string_view key : keys) key_bytes += key.size();
    Builder builder(1 + 2 * keys.size(), key_bytes);
    builder.open();
    for (std::size_t i = 0; i < keys.size(); ++i) {
        builder.add_string(keys[i]);
        builder.add_value(values[i]);
    }
    return builder.close(JsonKind::kObject, keys.size());
}

JsonValue json_borrow(JsonView value) { return JsonAccess::value({}, JsonAccess::node(value)); }

// Looking up.

JsonView json_member(JsonView object, std::string_view key) {
    if (!object.is_object()) return {};
    for (const JsonItem item : object.items()) {
        if (item.key == key) return item.value;
    }
    return {};
}

bool json_has_member(JsonView object, std::string_view key) {
    return JsonAccess::node(json_member(object, key)) != nullptr;
}

std::string_view json_get_string(JsonView object, std::string_view key) {
    return json_member(object, key).text();
}

// Of views.

JsonValue json_without_members(JsonView object, std::span<const std::string_view> names) {
    if (!object.is_object()) return json_object({}, {});
    Builder builder(1 + 2 * object.size(), 0);
    builder.open();
    std::size_t kept = 0;
    const JsonNode* key = JsonAccess::node(object) + 1;
    for (std::size_t i = 0; i < object.size(); ++i, key = step_over(key + 1)) {
        if (std::ranges::find(names, node_text(*key)) != names.end()) continue;
        builder.add_node(*key);
        builder.add_node(*follow_link(key + 1));
        ++kept;
    }
    return builder.close(JsonKind::kObject, kept);
}

}  // namespace quorvane
