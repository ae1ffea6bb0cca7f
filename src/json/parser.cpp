#include "json/parser.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

#include "json/key_set.h"
#include "json/number.h"
#include "json/storage.h"
#include "json/utf8.h"
#include "support/text.h"

namespace quorvane {
namespace {

// A JsonError without its place.
struct ErrorText {
    const char* code;
    const char* message;
};

constexpr ErrorText kBadLimits = {"input_limit", "invalid JSON parser limits"};
constexpr ErrorText kInputTooLong = {"input_limit", "JSON input exceeds configured byte limit"};
constexpr ErrorText kBadUtf8 = {"invalid_unicode", "JSON input is not valid UTF-8"};
constexpr ErrorText kBadUnicodeEscape = {"invalid_unicode", "invalid JSON Unicode escape"};
constexpr ErrorText kLoneLowSurrogate = {"invalid_unicode", "unexpected JSON low surrogate"};
constexpr ErrorText kNoLowSurrogate = {"invalid_unicode", "missing JSON low surrogate"};
constexpr ErrorText kBadSurrogatePair = {"invalid_unicode", "invalid JSON surrogate pair"};
constexpr ErrorText kTrailingInput = {"trailing_input", "trailing input after JSON value"};
constexpr ErrorText kTooDeep = {"depth_limit", "JSON nesting exceeds configured limit"};
constexpr ErrorText kTooManyNodes = {"node_limit", "JSON node count exceeds configured limit"};
constexpr ErrorText kTooManyMembers = {"node_limit",
                                       "JSON object member count exceeds configured limit"};
constexpr ErrorText kNoValue = {"unexpected_end", "expected JSON value"};
constexpr ErrorText kOpenArray = {"unexpected_end", "unterminated JSON array"};
constexpr ErrorText kOpenObject = {"unexpected_end", "unterminated JSON object"};
constexpr ErrorText kOpenEscape = {"unexpected_end", "unterminated JSON escape"};
constexpr ErrorText kOpenString = {"unexpected_end", "unterminated JSON string"};
constexpr ErrorText kBadToken = {"unexpected_token", "unexpected token in JSON input"};
constexpr ErrorText kNoArrayComma = {"unexpected_token", "expected comma or closing bracket"};
constexpr ErrorText kArrayTrailingComma = {"unexpected_token", "trailing comma in JSON array"};
constexpr ErrorText kNoKey = {"unexpected_token", "JSON object key must be a string"};
constexpr ErrorText kNoColon = {"unexpected_token", "expected colon after JSON object key"};
constexpr ErrorText kNoObjectComma = {"unexpected_token", "expected comma or closing brace"};
constexpr ErrorText kObjectTrailingComma = {"unexpected_token", "trailing comma in JSON object"};
constexpr ErrorText kControlByte = {"unexpected_token", "unescaped control byte in JSON string"};
constexpr ErrorText kBadEscape = {"invalid_escape", "invalid JSON string escape"};
constexpr ErrorText kBadNumber = {"invalid_number", "invalid JSON number"};
constexpr ErrorText kStringTooLong = {"string_limit", "JSON string exceeds configured limit"};
constexpr ErrorText kDuplicateKey = {"duplicate_key", "duplicate JSON object key"};

// The state of one parse.
//
// kTextPaddingBytes zero bytes follow the input, and no token contains one.  So most steps do not
// compare their place with the end: a zero byte is refused like any other that does not belong, and
// only then `refuse_or_end` asks whether it is a byte of the input or the end.
struct Parser {
    const char* end;
    JsonLimits limits;
    std::int64_t nodes_left;  // How many more values may come.
    char* texts;              // Where the next decoded string goes.
    KeySeed seed = key_seed();
    const ErrorText* error = nullptr;
    const char* error_at = nullptr;
};

// What every step takes and returns: the next byte to read and the next node to fill.  Two words
// that stay in registers, so a null `at` is the failure; the parser knows its reason.
struct Cursor {
    const char* at;
    JsonNode* node;
};

[[gnu::cold]] Cursor refuse(Parser& parser, const char* at, const ErrorText& error) {
    parser.error = &error;
    parser.error_at = at;
    return {nullptr, nullptr};
}

[[gnu::cold]] Cursor refuse_or_end(Parser& parser, const char* at, const ErrorText& error,
                                   const ErrorText& at_end) {
    return refuse(parser, at, at == parser.end ? at_end : error);
}

[[gnu::noinline]] const char* skip_some_whitespace(const char* at) {
    // One space, after a colon or comma, is the most frequent form.
    if (*at == ' ' && static_cast<unsigned char>(at[1]) > ' ') return at + 1;
    for (;; at += scan::kVectorBytes) {
        const std::size_t run = scan::whitespace_run(at);
        if (run < scan::kVectorBytes) return at + run;
    }
}

// Most texts are compact: that there is no whitespace is seen without a call.
inline const char* skip_whitespace(const char* at) {
    return static_cast<unsigned char>(*at) > ' ' ? at : skip_some_whitespace(at);
}

// Strings.

// By letter; 0 where there is no such escape, for none decodes to 0.
constexpr std::array<char, 128> make_simple_escapes() {
    std::array<char, 128> table{};
    constexpr std::string_view kPairs = "\"\"\\\\//b\bf\fn\nr\rt\t";
    for (std::size_t i = 0; i < kPairs.size(); i += 2) {
        table[static_cast<unsigned char>(kPairs[i])] = kPairs[i + 1];
    }
    return table;
}

constexpr std::array<char, 128> kSimpleEscapes = make_simple_escapes();

struct CodeUnit {
    bool ok = false;
    const char* end = nullptr;  // After the fourth digit, or the byte that is none.
    std::uint32_t value = 0;
};

CodeUnit read_code_unit(const char* at) {
    std::uint32_t value = 0;
    for (const char* const end = at + 4; at != end; ++at) {
        const std::optional<std::int32_t> digit = hex_digit(*at);
        if (!digit) return {.end = at};
        value = value << 4 | static_cast<std::uint32_t>(*digit);
    }
    return {.ok = true, .end = at, .value = value};
}

bool is_high_surrogate(std::uint32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool is_low_surrogate(std::uint32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

// The decoders add to the parser's texts and return where the escape ends, or null when the parse
// has failed.  `escape` is the backslash, of a \u escape here.
const char* decode_unicode_escape(Parser& parser, const char* escape) {
    CodeUnit unit = read_code_unit(escape + 2);
    if (!unit.ok) return refuse(parser, unit.end, kBadUnicodeEscape).at;
    if (is_low_surrogate(unit.value)) return refuse(parser, escape, kLoneLowSurrogate).at;
    char32_t code_point = unit.value;
    if (is_high_surrogate(unit.value)) {
        escape = unit.end;
        if (parser.end - escape < 6 || escape[0] != '\\' || escape[1] != 'u') {
            return refuse(parser, escape, kNoLowSurrogate).at;
        }
        unit = read_code_unit(escape + 2);
        if (!unit.ok) return refuse(parser, unit.end, kBadUnicodeEscape).at;
        if (!is_low_surrogate(unit.value)) return refuse(parser, escape, kBadSurrogatePair).at;
        code_point = 0x10000 + ((code_point - 0xD800) << 10 | (unit.value - 0xDC00));
    }
    parser.texts = put_utf8(code_point, parser.texts);
    return unit.end;
}

const char* decode_escape(Parser& parser, const char* escape) {
    const auto letter = static_cast<unsigned char>(escape[1]);
    if (letter == 'u') return decode_unicode_escape(parser, escape);
    const char decoded = letter < kSimpleEscapes.size() ? kSimpleEscapes[letter] : '\0';
    if (decoded == 0) return refuse_or_end(parser, escape + 1, kBadEscape, kOpenEscape).at;
    *parser.texts++ = decoded;
    return escape + 2;
}

// `at` is after a run of bytes that are text, of which `excess_bytes` are too many.
Cursor refuse_too_long(Parser& parser, const char* at, std::ptrdiff_t excess_bytes) {
    at -= excess_bytes;
    while ((static_cast<unsigned char>(*at) & 0xC0) == 0x80) --at;  // To the character's start.
    return refuse(parser, at, kStringTooLong);
}

// A string that is not a slice of the input: it has escapes, or an error.  `cursor.at` is the byte
// after the quote.  A decoded text is never longer than its source, so texts of the input's size
// always suffice.
Cursor decode_string(Parser& parser, Cursor cursor) {
    char* const text = parser.texts;
    for (;;) {
        // All sixteen bytes are copied, the next ones write over those that are not text.
        const char* stop = cursor.at;
        std::size_t run = scan::kVectorBytes;
        for (; run == scan::kVectorBytes; stop += run, parser.texts += run) {
            std::memcpy(parser.texts, stop, scan::kVectorBytes);
            run = scan::text_run(stop);
        }
        const std::ptrdiff_t excess_bytes = parser.texts - text - parser.limits.max_string_bytes;
        if (excess_bytes > 0) return refuse_too_long(parser, stop, excess_bytes);
        cursor.at = stop + 1;
        if (*stop == '"') break;
        if (*stop != '\\') return refuse_or_end(parser, stop, kControlByte, kOpenString);
        cursor.at = decode_escape(parser, stop);
        if (cursor.at == nullptr) return cursor;
        if (parser.texts - text > parser.limits.max_string_bytes) {
            return refuse(parser, stop, kStringTooLong);
        }
    }
    *parser.texts = '"';
    const std::string_view decoded(text, static_cast<std::size_t>(parser.texts - text));
    *cursor.node = text_node(JsonKind::kString, scan::holds_plain_text(decoded), decoded);
    return {cursor.at, cursor.node + 1};
}

inline Cursor parse_string(Parser& parser, Cursor cursor) {
    const char* const text = cursor.at + 1;
    const char* const stop = scan::skip_text(text);
    if (*stop != '"' || stop - text > parser.limits.max_string_bytes) [[unlikely]] {
        return decode_string(parser, {text, cursor.node});
    }
    *cursor.node = text_node(JsonKind::kString, true, {text, stop});
    return {stop + 1, cursor.node + 1};
}

// Numbers and words.

inline Cursor parse_number(Parser& parser, Cursor cursor) {
    const char* const text = cursor.at;
    const char* const digits = text + (*text == '-' ? 1 : 0);
    const std::size_t run = scan::digit_run(digits);
    const char* end = digits + run;
    // Most numbers are integers of fewer digits than are seen at once.
    const bool is_short = run > 0 && run < scan::kVectorBytes && (*digits != '0' || run == 1);
    bool is_integer = true;
    if (!is_short || is_number_byte(*end)) {
        const NumberScan literal = scan_number(text, parser.end);
        if (!literal.valid) return refuse(parser, text, kBadNumber);
        end = literal.end;
        is_integer = literal.is_integer;
    }
    *cursor.node = text_node(JsonKind::kNumber, is_integer, {text, end});
    return {end, cursor.node + 1};
}

Cursor parse_word(Parser& parser, Cursor cursor, std::string_view word, JsonNode node) {
    if (std::memcmp(cursor.at, word.data(), word.size()) != 0) {
        return refuse(parser, cursor.at, kBadToken);
    }
    *cursor.node = node;
    return {cursor.at + word.size(), cursor.node + 1};
}

// Values.  Recursion ends at max_depth, 256 at most.

template <JsonKind kKind> Cursor parse_container(Parser& parser, Cursor cursor, std::int64_t depth);

// `cursor.at` is after the whitespace.
inline Cursor parse_value(Parser& parser, Cursor cursor, std::int64_t depth) {
    if (depth > parser.limits.max_depth) return refuse(parser, cursor.at, kTooDeep);
    if (--parser.nodes_left < 0) return refuse(parser, cursor.at, kTooManyNodes);
    const char first = *cursor.at;
    switch (first) {
        case '"': return parse_string(parser, cursor);
        case '{': return parse_container<JsonKind::kObject>(parser, cursor, depth);
        case '[': return parse_container<JsonKind::kArray>(parser, cursor, depth);
        case 't': return parse_word(parser, cursor, "true", boolean_node(true));
        case 'f': return parse_word(parser, cursor, "false", boolean_node(false));
        case 'n': return parse_word(parser, cursor, "null", {});
        default:
            if (is_digit(first) || first == '-' || first == '+') {
                return parse_number(parser, cursor);
            }
            return refuse_or_end(parser, cursor.at, kBadToken, kNoValue);
    }
}

// The key of the object's next member, and its colon.
inline Cursor parse_key(Parser& parser, Cursor cursor, std::int64_t size, KeySet& keys) {
    if (*cursor.at != '"') return refuse_or_end(parser, cursor.at, kNoKey, kOpenObject);
    const JsonNode* const key = cursor.node;
    cursor = parse_string(parser, cursor);
    if (cursor.at == nullptr) return cursor;
    if (size == parser.limits.max_object_members) return refuse(parser, cursor.at, kTooManyMembers);
    if (parser.limits.reject_duplicate_keys && !keys.add(key, parser.seed)) {
        return refuse(parser, cursor.at, kDuplicateKey);
    }
    cursor.at = skip_whitespace(cursor.at);
    if (*cursor.at != ':') return refuse(parser, cursor.at, kNoColon);
    return {skip_whitespace(cursor.at + 1), cursor.node};
}

// From the end of an element or member to the next one, or to the closing bracket.
template <JsonKind kKind> inline Cursor pass_comma(Parser& parser, Cursor cursor) {
    constexpr bool kIsObject = kKind == JsonKind::kObject;
    constexpr char kEnd = kIsObject ? '}' : ']';
    cursor.at = skip_whitespace(cursor.at);
    if (*cursor.at == kEnd) return cursor;
    if (*cursor.at != ',') {
        return kIsObject ? refuse_or_end(parser, cursor.at, kNoObjectComma, kOpenObject)
                         : refuse_or_end(parser, cursor.at, kNoArrayComma, kOpenArray);
    }
    cursor.at = skip_whitespace(cursor.at + 1);
    if (*cursor.at != kEnd) return cursor;
    return refuse(parser, cursor.at, kIsObject ? kObjectTrailingComma : kArrayTrailingComma);
}

template <JsonKind kKind>
Cursor parse_container(Parser& parser, Cursor cursor, std::int64_t depth) {
    constexpr bool kIsObject = kKind == JsonKind::kObject;
    constexpr char kEnd = kIsObject ? '}' : ']';
    JsonNode* const container = cursor.node++;
    KeySet keys(container);
    std::int64_t size = 0;
    cursor.at = skip_whitespace(cursor.at + 1);
    while (*cursor.at != kEnd) {
        if (kIsObject) cursor = parse_key(parser, cursor, size, keys);
        if (cursor.at == nullptr) return cursor;
        cursor = parse_value(parser, cursor, depth + 1);
        if (cursor.at == nullptr) return cursor;
        ++size;
        cursor = pass_comma<kKind>(parser, cursor);
        if (cursor.at == nullptr) return cursor;
    }
    make_container(container, kKind, static_cast<std::size_t>(size), cursor.node);
    return {cursor.at + 1, cursor.node};
}

// The complete input.

bool in_range(std::int64_t value, std::int64_t most) { return value >= 1 && value <= most; }

bool are_valid(const JsonLimits& limits) {
    return in_range(limits.max_input_bytes, 16'777'216) && in_range(limits.max_depth, 256) &&
           in_range(limits.max_nodes, 1'000'000) && in_range(limits.max_string_bytes, 16'777'216) &&
           in_range(limits.max_object_members, 100'000);
}

JsonParseResult refused(std::string_view input, std::size_t offset, const ErrorText& error) {
    JsonParseResult result;
    result.error = {error.code, error.message, static_cast<std::int64_t>(offset), 1, 1};
    for (const char byte : input.substr(0, offset)) {
        ++result.error.column;
        if (byte != '\n') continue;
        ++result.error.line;
        result.error.column = 1;
    }
    return result;
}

// The most nodes that an input can fill, also when it is broken: each key and value has at least
// one byte, and a key comes only with a value of its own or as the last node.
std::size_t node_bound(std::size_t input_size, const JsonLimits& limits) {
    return std::min(input_size, 2 * static_cast<std::size_t>(limits.max_nodes));
}

// Of an input that is valid UTF-8 and not too long.
JsonParseResult parse(ByteBuffer input, const JsonLimits& limits) {
    std::memset(input.spare(kTextPaddingBytes), 0, kTextPaddingBytes);
    const std::string_view text = input.view();
    ByteBuffer nodes;
    ByteBuffer texts;
    Parser parser = {.end = text.data() + text.size(),
                     .limits = limits,
                     .nodes_left = limits.max_nodes,
                     .texts = texts.spare(text.size() + kTextPaddingBytes)};
    auto* const root = reinterpret_cast<JsonNode*>(
        nodes.spare(node_bound(text.size(), limits) * sizeof(JsonNode)));
    Cursor cursor = parse_value(parser, {skip_whitespace(text.data()), root}, 1);
    if (cursor.at != nullptr) {
        cursor.at = skip_whitespace(cursor.at);
        if (cursor.at != parser.end) cursor = refuse(parser, cursor.at, kTrailingInput);
    }
    if (cursor.at == nullptr) {
        return refused(text, static_cast<std::size_t>(parser.error_at - text.data()),
                       *parser.error);
    }
    std::vector<ByteBuffer> blocks;
    for (ByteBuffer* const block : {&input, &nodes, &texts}) blocks.push_back(std::move(*block));
    return {.ok = true, .value = JsonAccess::value(std::move(blocks), root), .error = {}};
}

}  // namespace

JsonParseResult parse_json(std::string_view input, const JsonLimits& limits) {
    return parse_json(ByteBuffer::copy_of(input), limits);
}

JsonParseResult parse_json(ByteBuffer input, const JsonLimits& limits) {
    const std::string_view text = input.view();
    if (!are_valid(limits)) return refused(text, 0, kBadLimits);
    const auto max_input_bytes = static_cast<std::size_t>(limits.max_input_bytes);
    if (text.size() > max_input_bytes) return refused(text, max_input_bytes, kInputTooLong);
    const std::size_t valid = valid_utf8_prefix(text);
    if (valid < text.size()) return refused(text, valid, kBadUtf8);
    return parse(std::move(input), limits);
}

}  // namespace quorvane
