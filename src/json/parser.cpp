#include "json/parser.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "json/key_set.h"
#include "json/number.h"
#include "json/storage.h"
#include "json/utf8.h"

namespace quorvane {
namespace {

struct Fault {
    std::string_view code;
    std::string_view message;
};

constexpr Fault kBadLimits = {"input_limit", "invalid JSON parser limits"};
constexpr Fault kInputTooLong = {"input_limit", "JSON input exceeds configured byte limit"};
constexpr Fault kBadUtf8 = {"invalid_unicode", "JSON input is not valid UTF-8"};
constexpr Fault kBadUnicodeEscape = {"invalid_unicode", "invalid JSON Unicode escape"};
constexpr Fault kLoneLowSurrogate = {"invalid_unicode", "unexpected JSON low surrogate"};
constexpr Fault kNoLowSurrogate = {"invalid_unicode", "missing JSON low surrogate"};
constexpr Fault kBadSurrogatePair = {"invalid_unicode", "invalid JSON surrogate pair"};
constexpr Fault kTrailingInput = {"trailing_input", "trailing input after JSON value"};
constexpr Fault kTooDeep = {"depth_limit", "JSON nesting exceeds configured limit"};
constexpr Fault kTooManyNodes = {"node_limit", "JSON node count exceeds configured limit"};
constexpr Fault kTooManyMembers = {"node_limit",
                                   "JSON object member count exceeds configured limit"};
constexpr Fault kNoValue = {"unexpected_end", "expected JSON value"};
constexpr Fault kOpenArray = {"unexpected_end", "unterminated JSON array"};
constexpr Fault kOpenObject = {"unexpected_end", "unterminated JSON object"};
constexpr Fault kOpenEscape = {"unexpected_end", "unterminated JSON escape"};
constexpr Fault kOpenString = {"unexpected_end", "unterminated JSON string"};
constexpr Fault kBadToken = {"unexpected_token", "unexpected token in JSON input"};
constexpr Fault kNoArrayComma = {"unexpected_token", "expected comma or closing bracket"};
constexpr Fault kArrayTrailingComma = {"unexpected_token", "trailing comma in JSON array"};
constexpr Fault kNoKey = {"unexpected_token", "JSON object key must be a string"};
constexpr Fault kNoColon = {"unexpected_token", "expected colon after JSON object key"};
constexpr Fault kNoObjectComma = {"unexpected_token", "expected comma or closing brace"};
constexpr Fault kObjectTrailingComma = {"unexpected_token", "trailing comma in JSON object"};
constexpr Fault kControlByte = {"unexpected_token", "unescaped control byte in JSON string"};
constexpr Fault kBadEscape = {"invalid_escape", "invalid JSON string escape"};
constexpr Fault kBadNumber = {"invalid_number", "invalid JSON number"};
constexpr Fault kStringTooLong = {"string_limit", "JSON string exceeds configured limit"};
constexpr Fault kDuplicateKey = {"duplicate_key", "duplicate JSON object key"};

// Behind the input stand kTextPadding zero bytes.  No token contains a zero byte, so that
// everything here stops at the end without looking for it; only a zero byte found where something
// else was wanted needs the question whether it is the end.
struct Parser {
    const char* end;
    std::size_t max_depth;
    std::size_t max_string_bytes;
    std::size_t max_members;
    bool reject_duplicates;
    std::size_t values_left;  // How many more may come.
    char* texts;              // Where the next decoded string goes.
    KeySeed seed = key_seed();
    const Fault* fault = nullptr;
    const char* fault_at = nullptr;
};

// What every step takes and returns: the next byte to read and the next node to fill.  Two words
// that stay in registers.
struct Cursor {
    const char* at;  // Null: the parse has failed, and the parser knows why.
    JsonNode* node;
};

[[gnu::cold]] Cursor fail(Parser& parser, const char* at, const Fault& fault) {
    parser.fault = &fault;
    parser.fault_at = at;
    return {nullptr, nullptr};
}

[[gnu::cold]] Cursor fail_or_end(Parser& parser, const char* at, const Fault& fault,
                                 const Fault& at_end) {
    return fail(parser, at, at == parser.end ? at_end : fault);
}

const char* skip_blanks(const char* at) {
    // Compact text has none, and one behind a colon or comma is the most frequent form.
    if (static_cast<unsigned char>(*at) > ' ') return at;
    if (static_cast<unsigned char>(*++at) > ' ' && at[-1] == ' ') return at;
    --at;
    for (;; at += scan::kWidth) {
        const std::size_t run = scan::blank_run(at);
        if (run < scan::kWidth) return at + run;
    }
}

// Strings.

// The first byte that does not stand for itself.  Stepping by a constant lets the processor look
// at the next bytes before it knows whether it has to.
const char* skip_text(const char* at) {
    for (;; at += scan::kWidth) {
        const std::size_t run = scan::text_run(at);
        if (run < scan::kWidth) return at + run;
    }
}

constexpr std::array<char, 128> make_simple_escapes() {
    std::array<char, 128> table{};
    constexpr std::string_view kPairs = "\"\"\\\\//b\bf\fn\nr\rt\t";
    for (std::size_t i = 0; i < kPairs.size(); i += 2) {
        table[static_cast<unsigned char>(kPairs[i])] = kPairs[i + 1];
    }
    return table;
}

constexpr std::array<char, 128> kSimpleEscapes = make_simple_escapes();

// 16 for a byte that is no hexadecimal digit.
std::uint32_t hex_value(char byte) {
    if (byte >= '0' && byte <= '9') return static_cast<std::uint32_t>(byte - '0');
    const char lower = static_cast<char>(byte | 0x20);
    if (lower >= 'a' && lower <= 'f') return static_cast<std::uint32_t>(lower - 'a' + 10);
    return 16;
}

struct CodeUnit {
    std::uint32_t value = 0;
    const char* end = nullptr;  // Behind the fourth digit, or the byte that is none.
    bool ok = false;
};

CodeUnit read_code_unit(const char* digits) {
    CodeUnit unit{0, digits, false};
    for (; unit.end != digits + 4; ++unit.end) {
        const std::uint32_t digit = hex_value(*unit.end);
        if (digit == 16) return unit;
        unit.value = unit.value << 4 | digit;
    }
    unit.ok = true;
    return unit;
}

bool is_high_surrogate(std::uint32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool is_low_surrogate(std::uint32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

struct DecodedEscape {
    const char* end = nullptr;  // Null: the parse has failed.
    char32_t code_point = 0;
};

DecodedEscape fail_escape(Parser& parser, const char* at, const Fault& fault) {
    fail(parser, at, fault);
    return {};
}

// `escape` is the backslash of a \u escape.
DecodedEscape decode_unicode_escape(Parser& parser, const char* escape) {
    const CodeUnit first = read_code_unit(escape + 2);
    if (!first.ok) return fail_escape(parser, first.end, kBadUnicodeEscape);
    if (is_low_surrogate(first.value)) return fail_escape(parser, escape, kLoneLowSurrogate);
    if (!is_high_surrogate(first.value)) return {first.end, first.value};

    const char* const second_escape = first.end;
    if (parser.end - second_escape < 6 || second_escape[0] != '\\' || second_escape[1] != 'u') {
        return fail_escape(parser, second_escape, kNoLowSurrogate);
    }
    const CodeUnit second = read_code_unit(second_escape + 2);
    if (!second.ok) return fail_escape(parser, second.end, kBadUnicodeEscape);
    if (!is_low_surrogate(second.value)) {
        return fail_escape(parser, second_escape, kBadSurrogatePair);
    }
    const std::uint32_t high = first.value - 0xD800;
    return {second.end, 0x10000 + (high << 10 | (second.value - 0xDC00))};
}

DecodedEscape decode_escape(Parser& parser, const char* escape) {
    const char letter = escape[1];
    if (letter == 'u') return decode_unicode_escape(parser, escape);
    const auto byte = static_cast<unsigned char>(letter);
    const char decoded = byte < kSimpleEscapes.size() ? kSimpleEscapes[byte] : '\0';
    if (decoded != 0) return {escape + 2, static_cast<char32_t>(decoded)};
    const bool at_end = escape + 1 == parser.end;
    return fail_escape(parser, escape + 1, at_end ? kOpenEscape : kBadEscape);
}

// `at` is behind a run of bytes that stand as they are, `excess` how many of them are too many.
Cursor fail_too_long(Parser& parser, const char* at, std::size_t excess) {
    at -= excess;
    while ((static_cast<unsigned char>(*at) & 0xC0) == 0x80) --at;  // To the character's start.
    return fail(parser, at, kStringTooLong);
}

// A string that is not a slice of the input: it has escapes, or a fault.  `cursor.at` is its first
// byte behind the quote.  A decoded text is never longer than its source, so the texts' room, as
// long as the input, always suffices.
Cursor decode_string(Parser& parser, Cursor cursor) {
    char* const text = parser.texts;
    char* out = text;
    const char* at = cursor.at;
    bool plain = true;
    for (;;) {
        std::memcpy(out, at, scan::kWidth);
        const std::size_t run = scan::text_run(at);
        if (run == scan::kWidth) {
            out += scan::kWidth;
            at += scan::kWidth;
            continue;
        }
        out += run;
        at += run;
        const auto size = static_cast<std::size_t>(out - text);
        if (size > parser.max_string_bytes) {
            return fail_too_long(parser, at, size - parser.max_string_bytes);
        }
        if (*at == '"') break;
        if (*at != '\\') return fail_or_end(parser, at, kControlByte, kOpenString);

        const DecodedEscape escape = decode_escape(parser, at);
        if (escape.end == nullptr) return {nullptr, nullptr};
        const char32_t decoded = escape.code_point;
        plain = plain && decoded >= 0x20 && decoded != '"' && decoded != '\\';
        out = put_utf8(decoded, out);
        if (static_cast<std::size_t>(out - text) > parser.max_string_bytes) {
            return fail(parser, at, kStringTooLong);
        }
        at = escape.end;
    }
    parser.texts = out;
    *cursor.node =
        text_node(NodeKind::kString, plain, {text, static_cast<std::size_t>(out - text)});
    return {at + 1, cursor.node + 1};
}

inline Cursor parse_string(Parser& parser, Cursor cursor) {
    const char* const text = cursor.at + 1;
    const char* const stop = skip_text(text);
    const auto size = static_cast<std::size_t>(stop - text);
    if (*stop != '"' || size > parser.max_string_bytes) [[unlikely]] {
        return decode_string(parser, {text, cursor.node});
    }
    *cursor.node = text_node(NodeKind::kString, true, {text, size});
    return {stop + 1, cursor.node + 1};
}

// Numbers and words.

bool extends_number(char byte) {
    return byte == '.' || byte == 'e' || byte == 'E' || byte == '+' || byte == '-';
}

inline Cursor parse_number(Parser& parser, Cursor cursor) {
    const char* const text = cursor.at;
    const char* const digits = text + (*text == '-' ? 1 : 0);
    const std::size_t run = scan::digit_run(digits);
    const char* end = digits + run;
    // Most numbers are integers of fewer digits than are seen at once.
    const bool is_short = run > 0 && run < scan::kWidth && (*digits != '0' || run == 1);
    bool is_integer = true;
    if (!is_short || extends_number(*end)) {
        const NumberScan scan = scan_number(text, parser.end);
        if (!scan.valid) return fail(parser, text, kBadNumber);
        end = scan.end;
        is_integer = scan.is_integer;
    }
    *cursor.node =
        text_node(NodeKind::kNumber, is_integer, {text, static_cast<std::size_t>(end - text)});
    return {end, cursor.node + 1};
}

Cursor parse_word(Parser& parser, Cursor cursor, std::string_view word, JsonNode node) {
    if (std::memcmp(cursor.at, word.data(), word.size()) != 0) {
        return fail(parser, cursor.at, kBadToken);
    }
    *cursor.node = node;
    return {cursor.at + word.size(), cursor.node + 1};
}

// Values.  Recursion ends at max_depth, 256 at most.

Cursor parse_array(Parser& parser, Cursor cursor, std::size_t depth);
Cursor parse_object(Parser& parser, Cursor cursor, std::size_t depth);

// `cursor.at` is behind the blanks.
inline Cursor parse_value(Parser& parser, Cursor cursor, std::size_t depth) {
    if (depth > parser.max_depth) return fail(parser, cursor.at, kTooDeep);
    if (parser.values_left == 0) return fail(parser, cursor.at, kTooManyNodes);
    --parser.values_left;
    switch (*cursor.at) {
        case '"':
            return parse_string(parser, cursor);
        case '{':
            return parse_object(parser, cursor, depth);
        case '[':
            return parse_array(parser, cursor, depth);
        case '0':
        case '1':
        case '2':
        case '3':
        case '4':
        case '5':
        case '6':
        case '7':
        case '8':
        case '9':
        case '-':
        case '+':
            return parse_number(parser, cursor);
        case 't':
            return parse_word(parser, cursor, "true", {NodeKind::kBoolean, true, 0, {}});
        case 'f':
            return parse_word(parser, cursor, "false", {NodeKind::kBoolean, false, 0, {}});
        case 'n':
            return parse_word(parser, cursor, "null", {});
        default:
            return fail_or_end(parser, cursor.at, kBadToken, kNoValue);
    }
}

// `open` is where the container began, `cursor.at` its last byte.  Blanks go and escapes never grow
// when it is written again, so that its source is at least as long.
Cursor close_container(JsonNode* container, NodeKind kind, std::size_t size, Cursor cursor) {
    const auto nodes = static_cast<std::size_t>(cursor.node - container);
    *container = container_node(kind, size, nodes);
    return {cursor.at + 1, cursor.node};
}

Cursor parse_array(Parser& parser, Cursor cursor, std::size_t depth) {
    JsonNode* const array = cursor.node++;
    std::size_t size = 0;
    cursor.at = skip_blanks(cursor.at + 1);
    if (*cursor.at == ']') return close_container(array, NodeKind::kArray, 0, cursor);
    for (;;) {
        cursor = parse_value(parser, cursor, depth + 1);
        if (cursor.at == nullptr) return cursor;
        ++size;
        cursor.at = skip_blanks(cursor.at);
        if (*cursor.at == ']') return close_container(array, NodeKind::kArray, size, cursor);
        if (*cursor.at != ',') return fail_or_end(parser, cursor.at, kNoArrayComma, kOpenArray);
        cursor.at = skip_blanks(cursor.at + 1);
        if (*cursor.at == ']') return fail(parser, cursor.at, kArrayTrailingComma);
    }
}

Cursor parse_object(Parser& parser, Cursor cursor, std::size_t depth) {
    JsonNode* const object = cursor.node++;
    KeySet keys(object);
    std::size_t size = 0;
    cursor.at = skip_blanks(cursor.at + 1);
    if (*cursor.at == '}') return close_container(object, NodeKind::kObject, 0, cursor);
    for (;;) {
        if (*cursor.at != '"') return fail_or_end(parser, cursor.at, kNoKey, kOpenObject);
        const JsonNode* const key = cursor.node;
        cursor = parse_string(parser, cursor);
        if (cursor.at == nullptr) return cursor;
        if (size == parser.max_members) return fail(parser, cursor.at, kTooManyMembers);
        if (parser.reject_duplicates && !keys.add(key, parser.seed)) {
            return fail(parser, cursor.at, kDuplicateKey);
        }
        cursor.at = skip_blanks(cursor.at);
        if (*cursor.at != ':') return fail(parser, cursor.at, kNoColon);
        cursor.at = skip_blanks(cursor.at + 1);
        cursor = parse_value(parser, cursor, depth + 1);
        if (cursor.at == nullptr) return cursor;
        ++size;
        cursor.at = skip_blanks(cursor.at);
        if (*cursor.at == '}') return close_container(object, NodeKind::kObject, size, cursor);
        if (*cursor.at != ',') return fail_or_end(parser, cursor.at, kNoObjectComma, kOpenObject);
        cursor.at = skip_blanks(cursor.at + 1);
        if (*cursor.at == '}') return fail(parser, cursor.at, kObjectTrailingComma);
    }
}

// The whole input.

bool within(std::int64_t value, std::int64_t highest) { return value >= 1 && value <= highest; }

bool are_valid(const JsonLimits& limits) {
    return within(limits.max_input_bytes, 16'777'216) && within(limits.max_depth, 256) &&
           within(limits.max_nodes, 1'000'000) && within(limits.max_string_bytes, 16'777'216) &&
           within(limits.max_object_members, 100'000);
}

JsonParseResult refused(std::string_view input, std::size_t offset, const Fault& fault) {
    JsonParseResult result;
    result.error = {fault.code, fault.message, static_cast<std::int64_t>(offset), 1, 1};
    for (const char byte : input.substr(0, offset)) {
        ++result.error.column;
        if (byte != '\n') continue;
        ++result.error.line;
        result.error.column = 1;
    }
    return result;
}

// What can be said before a single value is looked at; null when nothing is wrong.
struct FirstLook {
    const Fault* fault = nullptr;
    std::size_t offset = 0;
};

FirstLook look_at(std::string_view input, const JsonLimits& limits) {
    if (!are_valid(limits)) return {&kBadLimits, 0};
    const auto max_input_bytes = static_cast<std::size_t>(limits.max_input_bytes);
    if (input.size() > max_input_bytes) return {&kInputTooLong, max_input_bytes};
    const std::size_t valid = valid_utf8_prefix(input);
    if (valid < input.size()) return {&kBadUtf8, valid};
    return {};
}

// How many nodes an input can fill.  In a whole document each value and each key has two bytes of
// its own, one of them a separator's or bracket's, but for the outermost value, which may have one.
// What was read of a broken one becomes whole by four bytes at most, and one for each container
// that is still open.  And no more than `max_nodes` values come to pass, each with one key at most,
// and one more key.
std::size_t node_bound(std::size_t input_size, const JsonLimits& limits) {
    const std::size_t by_size = (input_size + static_cast<std::size_t>(limits.max_depth)) / 2 + 3;
    return std::min(by_size, 2 * static_cast<std::size_t>(limits.max_nodes) + 2);
}

// Parses `input`, which is padded with zero bytes and outlives `storage`, into `storage`.
JsonParseResult parse_padded(JsonStorage* storage, char* texts, std::string_view input,
                             const JsonLimits& limits) {
    JsonValue value = JsonAccess::value(storage, storage->nodes);
    const auto unsigned_limit = [](std::int64_t limit) { return static_cast<std::size_t>(limit); };
    Parser parser = {.end = input.data() + input.size(),
                     .max_depth = unsigned_limit(limits.max_depth),
                     .max_string_bytes = unsigned_limit(limits.max_string_bytes),
                     .max_members = unsigned_limit(limits.max_object_members),
                     .reject_duplicates = limits.reject_duplicate_keys,
                     .values_left = unsigned_limit(limits.max_nodes),
                     .texts = texts};
    Cursor cursor = {skip_blanks(input.data()), storage->nodes};
    cursor = parse_value(parser, cursor, 1);
    if (cursor.at != nullptr) {
        cursor.at = skip_blanks(cursor.at);
        if (cursor.at != parser.end) cursor = fail(parser, cursor.at, kTrailingInput);
    }
    if (cursor.at == nullptr) {
        const auto offset = static_cast<std::size_t>(parser.fault_at - input.data());
        return refused(input, offset, *parser.fault);
    }
    return {.ok = true, .value = std::move(value), .error = {}};
}

}  // namespace

JsonParseResult parse_json(std::string_view input, const JsonLimits& limits) {
    const FirstLook look = look_at(input, limits);
    if (look.fault != nullptr) return refused(input, look.offset, *look.fault);

    // The texts' room holds the copy, its padding, and what will be decoded.
    const std::size_t copy_size = input.size() + kTextPadding;
    JsonStorage* const storage =
        make_storage(node_bound(input.size(), limits), copy_size + input.size());
    char* const copy = storage->texts;
    if (!input.empty()) std::memcpy(copy, input.data(), input.size());
    std::memset(copy + input.size(), 0, kTextPadding);
    return parse_padded(storage, copy + copy_size, {copy, input.size()}, limits);
}

JsonParseResult parse_json(ByteBuffer input, const JsonLimits& limits) {
    const FirstLook look = look_at(input.view(), limits);
    if (look.fault != nullptr) return refused(input.view(), look.offset, *look.fault);

    std::memset(input.spare(kTextPadding), 0, kTextPadding);
    const std::string_view padded = input.view();
    JsonStorage* const storage = make_storage(node_bound(padded.size(), limits), padded.size());
    storage->input = std::move(input);
    return parse_padded(storage, storage->texts, padded, limits);
}

}  // namespace quorvane
