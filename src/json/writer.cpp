#include "json/writer.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "json/storage.h"

namespace quorvane {
namespace {

// What a step may write beside its text: quotes, separators, one escape, and what the copies of
// complete blocks write too much.
constexpr std::size_t kStepBytes = 64;

// What is reserved at first and for each node: enough for most texts, and memory that stays
// untouched costs nothing.
constexpr std::size_t kFirstBytes = 256;
constexpr std::size_t kBytesPerNode = 32;

// Writes into the spare capacity of a buffer.  The functions below pass the place of the next byte
// from one to the next instead of keeping it in memory.
struct Writer {
    // A place for at least `size` bytes: `at`, or the same place after the buffer has moved.
    char* spare(char* at, std::size_t size) {
        if (size <= static_cast<std::size_t>(limit - at)) [[likely]]
            return at;
        commit(at);
        at = out.spare(size);
        limit = at + out.spare_size();
        return at;
    }
    void commit(char* at) { out.commit(static_cast<std::size_t>(at - out.spare(0))); }

    ByteBuffer out;
    char* limit = nullptr;
};

// The text of a byte in a JSON string.
struct Escape {
    char text[7];
    std::uint8_t length;
};

constexpr std::array<Escape, 256> make_escapes() {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::array<Escape, 256> table{};
    for (unsigned byte = 0; byte < table.size(); ++byte) {
        table[byte] = {{static_cast<char>(byte)}, 1};
        if (byte < 0x20) {
            table[byte] = {{'\\', 'u', '0', '0', kDigits[byte >> 4], kDigits[byte & 15]}, 6};
        }
    }
    constexpr std::string_view kShortEscapes = "\bb\tt\nn\ff\rr\"\"\\\\";
    for (std::size_t i = 0; i < kShortEscapes.size(); i += 2) {
        table[static_cast<unsigned char>(kShortEscapes[i])] = {{'\\', kShortEscapes[i + 1]}, 2};
    }
    return table;
}

constexpr std::array<Escape, 256> kEscapes = make_escapes();

// `text` is padded; `at` is a place for its size and kStepBytes.
char* put_text(char* at, std::string_view text) {
    constexpr std::size_t kShortBytes = 32;
    static_assert(kShortBytes <= kTextPaddingBytes);
    if (text.size() <= kShortBytes) {
        std::memcpy(at, text.data(), kShortBytes);
    } else {
        std::memcpy(at, text.data(), text.size());
    }
    return at + text.size();
}

char* put_escaped(Writer& writer, char* at, std::string_view text) {
    for (const char byte : text) {
        const Escape& escape = kEscapes[static_cast<unsigned char>(byte)];
        at = writer.spare(at, sizeof escape);
        std::memcpy(at, &escape, sizeof escape);
        at += escape.length;
    }
    return writer.spare(at, kStepBytes);
}

char* put_string(Writer& writer, char* at, const JsonNode& node) {
    at = writer.spare(at, node.size + kStepBytes);
    *at++ = '"';
    at = is_plain(node) ? put_text(at, node_text(node)) : put_escaped(writer, at, node_text(node));
    *at++ = '"';
    return at;
}

template <std::size_t N> char* put_word(char* at, const char (&word)[N]) {
    std::memcpy(at, word, N);
    return at + N - 1;
}

char* put_indent(Writer& writer, char* at, std::size_t depth) {
    at = writer.spare(at, 2 * depth + kStepBytes);
    *at++ = '\n';
    std::memset(at, ' ', 2 * depth);
    return at + 2 * depth;
}

template <bool kIndented>
char* put_container(Writer& writer, char* at, const JsonNode& container, std::size_t depth);

template <bool kIndented>
char* put_value(Writer& writer, char* at, const JsonNode& node, std::size_t depth) {
    switch (node.kind) {
        case JsonKind::kString: return put_string(writer, at, node);
        case JsonKind::kNumber:
            return put_text(writer.spare(at, node.size + kStepBytes), node_text(node));
        case JsonKind::kArray:
        case JsonKind::kObject:
            return put_container<kIndented>(writer, at, *follow_link(&node), depth);
        case JsonKind::kBoolean:
            at = writer.spare(at, kStepBytes);
            return is_true(node) ? put_word(at, "true") : put_word(at, "false");
        case JsonKind::kNull: break;
    }
    return put_word(writer.spare(at, kStepBytes), "null");
}

template <bool kIndented>
char* put_container(Writer& writer, char* at, const JsonNode& container, std::size_t depth) {
    const bool is_object = container.kind == JsonKind::kObject;
    at = writer.spare(at, kBytesPerNode * container.nodes + kStepBytes);
    *at++ = is_object ? '{' : '[';
    const JsonNode* part = &container + 1;
    for (std::size_t remaining = container.size; remaining > 0; --remaining) {
        if (kIndented) at = put_indent(writer, at, depth + 1);
        if (is_object) {
            at = put_string(writer, at, *part++);
            *at++ = ':';
            if (kIndented) *at++ = ' ';
        }
        at = put_value<kIndented>(writer, at, *part, depth + 1);
        part = step_over(part);
        *at++ = ',';
    }
    if (container.size > 0) --at;  // There is none after the last.
    if (kIndented && container.size > 0) at = put_indent(writer, at, depth);
    at = writer.spare(at, kStepBytes);
    *at++ = is_object ? '}' : ']';
    return at;
}

template <bool kIndented> ByteBuffer write_tree(JsonView value) {
    constexpr JsonNode kAbsent{};
    const JsonNode* const node = JsonAccess::node(value);
    Writer writer;
    char* const at = writer.spare(nullptr, kFirstBytes);
    writer.commit(put_value<kIndented>(writer, at, node == nullptr ? kAbsent : *node, 0));
    return std::move(writer.out);
}

}  // namespace

ByteBuffer write_json(JsonView value) { return write_tree<false>(value); }

ByteBuffer write_pretty_json(JsonView value) { return write_tree<true>(value); }

}  // namespace quorvane
