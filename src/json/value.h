#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "support/bytes.h"

/// JSON values: trees that are built once, read through views and never changed in place.
///
/// Strings and keys are valid UTF-8, numbers are valid literals and keep their text, members keep
/// their order.  The constructors refuse anything else with a null value, so a value that cannot
/// be written does not exist.
///
/// How a tree is stored is private to json/.  What matters outside: reading never copies, moving
/// a JsonValue costs a few words, and putting trees into an array or object moves
/// them without touching what they hold.
namespace quorvane {

enum class JsonKind : std::uint8_t {
    kNull = 0,
    kString = 1,
    kNumber = 2,
    kBoolean = 3,
    kArray = 4,
    kObject = 5,
};

/// A number is never turned into floating point: `text` is what was written, byte for byte.
struct JsonNumber {
    std::string_view text;
    bool is_integer = false;   ///< The text has neither a fraction part nor an exponent.
    std::int64_t integer = 0;  ///< The value when `fits`, else 0.
    bool fits = false;         ///< An integer within the signed 64-bit range.
};

struct JsonNode;
class JsonItems;

/// Refers to one value inside a tree, or to none ("absent"); as cheap as a pointer.
///
/// It holds as long as the JsonValue that owns the tree, or that the tree was moved into.  Every
/// question may be asked of every view: when it does not suit the kind, or the view is absent, the
/// answer is an empty text, false, 0 or an empty range.
class JsonView {
  public:
    JsonView() = default;

    [[nodiscard]] JsonKind kind() const;  ///< The absent view reads as null.
    [[nodiscard]] bool is_object() const { return kind() == JsonKind::kObject; }

    [[nodiscard]] std::string_view text() const;  ///< Of a string; may hold zero bytes.
    [[nodiscard]] bool boolean() const;
    [[nodiscard]] JsonNumber number() const;
    [[nodiscard]] std::int64_t integer() const;  ///< 0 unless the number `fits`.

    [[nodiscard]] std::size_t size() const;  ///< How many elements or members.
    [[nodiscard]] JsonItems items() const;

  private:
    friend struct JsonAccess;
    explicit JsonView(const JsonNode* node) : node_(node) {}
    const JsonNode* node_ = nullptr;
};

struct JsonItem {
    std::string_view key;  ///< Empty in an array.
    JsonView value;
};

/// The elements of an array or the members of an object in order:
/// `for (const JsonItem item : view.items())`.  The range is its own iterator.
class JsonItems {
  public:
    JsonItems() = default;
    [[nodiscard]] JsonItems begin() const { return *this; }
    [[nodiscard]] JsonItems end() const { return {}; }
    JsonItem operator*() const;
    JsonItems& operator++();
    bool operator==(const JsonItems& other) const { return remaining_ == other.remaining_; }

  private:
    friend class JsonView;
    const JsonNode* node_ = nullptr;  // Of the key, in an array of the element.
    std::size_t remaining_ = 0;
    std::size_t key_nodes_ = 0;  // 1 in an object.
};

/// Owns a complete tree.  Made empty, or moved from, it is null.
class JsonValue {
  public:
    JsonValue() = default;
    JsonValue(JsonValue&& other) noexcept
        : blocks_(std::move(other.blocks_)), root_(std::exchange(other.root_, nullptr)) {}
    JsonValue& operator=(JsonValue&& other) noexcept {
        JsonValue moved(std::move(other));
        blocks_.swap(moved.blocks_);
        root_ = moved.root_;
        return *this;
    }

    /// Never absent.
    [[nodiscard]] JsonView view() const;
    operator JsonView() const { return view(); }

  private:
    friend struct JsonAccess;
    JsonValue(std::vector<ByteBuffer> blocks, const JsonNode* root)
        : blocks_(std::move(blocks)), root_(root) {}

    std::vector<ByteBuffer> blocks_;
    const JsonNode* root_ = nullptr;
};

// Constructors.

[[nodiscard]] JsonValue json_null();
[[nodiscard]] JsonValue json_bool(bool value);
/// Null when `text` is not valid UTF-8.
[[nodiscard]] JsonValue json_string(std::string_view text);
[[nodiscard]] JsonValue json_integer(std::int64_t value);
/// A number that is written as `text`; null when that is no JSON number literal.
[[nodiscard]] JsonValue json_number_text(std::string_view text);
[[nodiscard]] JsonValue json_array(std::vector<JsonValue> elements);
/// Null when there are not as many keys as values, or a key is not valid UTF-8.  Of equal keys all
/// are kept.
[[nodiscard]] JsonValue json_object(std::vector<std::string_view> keys,
                                    std::vector<JsonValue> values);
/// A value that refers to `value` without owning it; the owner must outlive every tree that it is
/// put into.  Absent becomes null.
[[nodiscard]] JsonValue json_borrow(JsonView value);

/// Values as the list that json_array and json_object take, in one expression.
template <typename... Values> [[nodiscard]] std::vector<JsonValue> json_values(Values&&... values) {
    std::vector<JsonValue> list;
    list.reserve(sizeof...(values));
    (list.push_back(std::forward<Values>(values)), ...);
    return list;
}

// Lookups: keys are compared byte by byte; of equal keys the first counts.

/// Absent when `object` is no object or has no such member.
[[nodiscard]] JsonView json_member(JsonView object, std::string_view key);
[[nodiscard]] bool json_has_member(JsonView object, std::string_view key);
/// Empty when there is no such member or it is not a string.
[[nodiscard]] std::string_view json_get_string(JsonView object, std::string_view key);

/// The object without the members named, borrowed from `object` as by
/// json_borrow; an empty object when `object` is none.
[[nodiscard]] JsonValue json_without_members(JsonView object,
                                             std::span<const std::string_view> names);

}  // namespace quorvane
