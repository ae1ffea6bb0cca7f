#include "json/writer.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "json/storage.h"

namespace quorvane {
namespace {

// Whatever is written in one go beside a text: quotes, separators, one escape, and what a copy of
// whole blocks writes too much.
constexpr std::size_t kSlack = 64;

// What is reserved for each node: enough for most texts, and memory that stays untouched costs
// nothing.
constexpr std::size_t kBytesPerNode = 32;

// The room behind the buffer's last byte.  The functions below hand the place of the next byte
// from one to the next instead of keeping it in memory.
struct Writer {
    explicit Writer(ByteBuffer& target) : out(target) { open(kSlack); }

    // At least `size` bytes at the place returned, which is `at` or its successor after a move.
    char* room(char* at, std::size_t size) {
        if (size <= static_cast<std::size_t>(limit - at)) [[likely]]
            return at;
        close(at);
        return open(size);
    }
    char* open(std::size_t size) {
        start = out.spare(size);
        limit = start + out.spare_size();
        return start;
    }
    void close(char* at) { out.commit(static_cast<std::size_t>(at - start)); }

    ByteBuffer& out;
    char* start = nullptr;
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
    constexpr std::string_view kShort = "\bb\tt\nn\ff\rr\"\"\\\\";
    for (std::size_t i = 0; i < kShort.size(); i += 2) {
        table[static_cast<unsigned char>(kShort[i])] = {{'\\', kShort[i + 1]}, 2};
    }
    return table;
}

constexpr std::array<Escape, 256> kEscapes = make_escapes();

// `text` is padded, `at` has room for its size and kSlack.
char* put_text(char* at, std::string_view text) {
    constexpr std::size_t kShort = 32;
    static_assert(kShort <= kTextPadding);
    if (text.size() <= kShort) {
        std::memcpy(at, text.data(), kShort);
    } else {
        std::memcpy(at, text.data(), text.size());
    }
    return at + text.size();
}

char* put_escaped(Writer& writer, char* at, std::string_view text) {
    for (const char byte : text) {
        const Escape& escape = kEscapes[static_cast<unsigned char>(byte)];
        at = writer.room(at, sizeof escape);
        std::memcpy(at, &escape, sizeof escape);
        at += escape.length;
    }
    return writer.room(at, kSlack);
}

char* put_string(Writer& writer, char* at, const JsonNode& node) {
    at = writer.room(at, node.size + kSlack);
    *at++ = '"';
    at = node.flag ? put_text(at, node_text(node)) : put_escaped(writer, at, node_text(node));
    *at++ = '"';
    return at;
}

template <std::size_t N>
char* put_word(char* at, const char (&word)[N]) {
    std::memcpy(at, word, N);
    return at + N - 1;
}

char* put_indent(Writer& writer, char* at, std::size_t depth) {
    at = writer.room(at, 2 * depth + kSlack);
    *at++ = '\n';
    std::memset(at, ' ', 2 * depth);
    return at + 2 * depth;
}

template <bool kIndented>
char* put_container(Writer& writer, char* at, const JsonNode& container, std::size_t depth);

template <bool kIndented>
char* put_value(Writer& writer, char* at, const JsonNode& node, std::size_t depth) {
    switch (node.kind) {
        case JsonKind::kString:
            return put_string(writer, at, node);
        case JsonKind::kNumber:
            return put_text(writer.room(at, node.size + kSlack), node_text(node));
        case JsonKind::kArray:
        case JsonKind::kObject:
            return put_container<kIndented>(writer, at, *resolve(&node), depth);
        case JsonKind::kBoolean:
            at = writer.room(at, kSlack);
            return node.flag ? put_word(at, "true") : put_word(at, "false");
        case JsonKind::kNull:
            break;
    }
    return put_word(writer.room(at, kSlack), "null");
}

template <bool kIndented>
char* put_container(Writer& writer, char* at, const JsonNode& container, std::size_t depth) {
    const bool is_object = container.kind == JsonKind::kObject;
    at = writer.room(at, kBytesPerNode * container.nodes + kSlack);
    *at++ = is_object ? '{' : '[';
    const JsonNode* part = &container + 1;
    for (std::size_t left = container.size; left > 0; --left) {
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
    if (container.size > 0) --at;  // There is none behind the last.
    if (kIndented && container.size > 0) at = put_indent(writer, at, depth);
    at = writer.room(at, kSlack);
    *at++ = is_object ? '}' : ']';
    return at;
}

template <bool kIndented>
void append_tree(JsonView value, ByteBuffer& out) {
    const JsonNode* const node = JsonAccess::node(value);
    Writer writer(out);
    char* at = writer.start;
    at = node == nullptr ? put_word(at, "null") : put_value<kIndented>(writer, at, *node, 0);
    writer.close(at);
}

}  // namespace

ByteBuffer write_json(JsonView value) {
    ByteBuffer out;
    append_tree<false>(value, out);
    return out;
}

ByteBuffer write_pretty_json(JsonView value) {
    ByteBuffer out;
    append_tree<true>(value, out);
    return out;
}

}  // namespace quorvane
