#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

/// JSON values: trees that are built once, read through views and never changed in place.
///
/// Strings and keys are valid UTF-8, numbers are valid literals and keep their text, members keep
/// their order.  The constructors refuse anything else with a null value, so a value that cannot
/// be written does not exist.
///
/// How a tree is stored is private to json/.  What matters outside: reading never copies, moving
/// a JsonValue costs a few words, and putting trees into an array or object, or taking a member
/// out, moves them without touching what they hold.
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
struct JsonStorage;
class JsonElements;
class JsonMembers;

/// Refers to one value inside a tree, or to none ("absent"); as cheap as a pointer.
///
/// It holds as long as the JsonValue that owns the tree, or that the tree was moved into.  Every
/// question may be asked of every view: one that does not suit the kind, or the absent view, is
/// answered with an empty text, false, 0 or an empty range.
class JsonView {
  public:
    JsonView() = default;

    [[nodiscard]] bool present() const { return node_ != nullptr; }
    [[nodiscard]] JsonKind kind() const;  ///< The absent view reads as null.
    [[nodiscard]] bool is_null() const { return kind() == JsonKind::kNull; }
    [[nodiscard]] bool is_string() const { return kind() == JsonKind::kString; }
    [[nodiscard]] bool is_number() const { return kind() == JsonKind::kNumber; }
    [[nodiscard]] bool is_boolean() const { return kind() == JsonKind::kBoolean; }
    [[nodiscard]] bool is_array() const { return kind() == JsonKind::kArray; }
    [[nodiscard]] bool is_object() const { return kind() == JsonKind::kObject; }

    [[nodiscard]] std::string_view text() const;  ///< Of a string; may hold zero bytes.
    [[nodiscard]] bool boolean() const;
    [[nodiscard]] JsonNumber number() const;
    [[nodiscard]] std::int64_t integer() const;  ///< 0 unless the number `fits`.

    [[nodiscard]] std::size_t size() const;  ///< How many elements or members.
    [[nodiscard]] JsonElements elements() const;
    [[nodiscard]] JsonMembers members() const;

  private:
    friend struct JsonAccess;
    explicit JsonView(const JsonNode* node) : node_(node) {}
    const JsonNode* node_ = nullptr;
};

struct JsonMember {
    std::string_view key;
    JsonView value;
};

/// The elements of an array in order: `for (JsonView element : view.elements())`.
class JsonElements {
  public:
    class Iterator {
      public:
        Iterator() = default;
        Iterator(const JsonNode* node, std::size_t left) : node_(node), left_(left) {}
        JsonView operator*() const;
        Iterator& operator++();
        bool operator==(const Iterator& other) const { return left_ == other.left_; }

      private:
        const JsonNode* node_ = nullptr;
        std::size_t left_ = 0;
    };

    explicit JsonElements(Iterator first) : first_(first) {}
    [[nodiscard]] Iterator begin() const { return first_; }
    [[nodiscard]] Iterator end() const { return {}; }

  private:
    Iterator first_;
};

/// The members of an object in order: `for (JsonMember member : view.members())`.
class JsonMembers {
  public:
    class Iterator {
      public:
        Iterator() = default;
        Iterator(const JsonNode* key, std::size_t left) : key_(key), left_(left) {}
        JsonMember operator*() const;
        Iterator& operator++();
        bool operator==(const Iterator& other) const { return left_ == other.left_; }

      private:
        const JsonNode* key_ = nullptr;
        std::size_t left_ = 0;
    };

    explicit JsonMembers(Iterator first) : first_(first) {}
    [[nodiscard]] Iterator begin() const { return first_; }
    [[nodiscard]] Iterator end() const { return {}; }

  private:
    Iterator first_;
};

/// Owns a whole tree.  Made empty, or moved from, it is null.
class JsonValue {
  public:
    JsonValue() = default;
    JsonValue(JsonValue&& other) noexcept
        : storage_(std::exchange(other.storage_, nullptr)),
          root_(std::exchange(other.root_, nullptr)) {}
    JsonValue& operator=(JsonValue&& other) noexcept {
        JsonValue moved(std::move(other));
        std::swap(storage_, moved.storage_);
        std::swap(root_, moved.root_);
        return *this;
    }
    JsonValue(const JsonValue&) = delete;
    JsonValue& operator=(const JsonValue&) = delete;
    ~JsonValue() {
        if (storage_ != nullptr) release_storage();
    }

    /// Never absent.
    [[nodiscard]] JsonView view() const;
    operator JsonView() const { return view(); }

  private:
    friend struct JsonAccess;
    JsonValue(JsonStorage* storage, const JsonNode* root) : storage_(storage), root_(root) {}
    void release_storage();

    JsonStorage* storage_ = nullptr;
    const JsonNode* root_ = nullptr;
};

// Constructors.

[[nodiscard]] JsonValue json_null();
[[nodiscard]] JsonValue json_bool(bool value);
/// Null when `text` is not valid UTF-8.
[[nodiscard]] JsonValue json_string(std::string_view text);
[[nodiscard]] JsonValue json_integer(std::int64_t value);
/// A number that keeps `text` as its form; null when that is no JSON number literal.
[[nodiscard]] JsonValue json_number_text(std::string_view text);
[[nodiscard]] JsonValue json_array(std::vector<JsonValue> elements);
/// Null when there are not as many keys as values, or a key is not valid UTF-8.  Equal keys are
/// kept, all of them.
[[nodiscard]] JsonValue json_object(std::vector<std::string_view> keys,
                                    std::vector<JsonValue> values);
/// A tree of its own with the same content; the copy of the absent view is null.
[[nodiscard]] JsonValue json_copy(JsonView value);

/// Values as the list that json_array and json_object take, in one expression.
template <typename... Values>
[[nodiscard]] std::vector<JsonValue> json_values(Values&&... values) {
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

// Taking trees apart; what is left out stays in memory until the result is gone.

/// The member, or null when there is none.
[[nodiscard]] JsonValue json_take_member(JsonValue object, std::string_view key);
/// The object without the members named; an empty object when `object` is none.
[[nodiscard]] JsonValue json_without_members(JsonValue object,
                                             std::span<const std::string_view> keys);

}  // namespace quorvane
