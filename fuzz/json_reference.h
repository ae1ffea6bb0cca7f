#pragma once

#include <regex.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "json/parser.h"

/// The JSON parser and writer once more, as plainly as they can be put: one byte at a time, every
/// bound asked for, no tree.  What the real ones are compared with.
namespace quorvane::reference {

struct Outcome {
    std::string code;  ///< Empty: accepted.
    std::string message;
    std::int64_t offset = 0;
    std::int64_t line = 0;
    std::int64_t column = 0;
    std::string compact;  ///< What write_json gives for the value.
};

inline constexpr std::string_view kLetters = "\"\\/bfnrt";
inline constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";

// RFC 8259, section 6.
inline bool is_number(const std::string& run) {
    static const regex_t grammar = [] {
        regex_t made;
        const char* const text = "^-?(0|[1-9][0-9]*)([.][0-9]+)?([eE][+-]?[0-9]+)?$";
        if (regcomp(&made, text, REG_EXTENDED | REG_NOSUB) != 0) __builtin_trap();
        return made;
    }();
    return regexec(&grammar, run.c_str(), 0, nullptr, 0) == 0;
}

class Reader {
  public:
    Reader(std::string_view input, const JsonLimits& limits) : input_(input), limits_(limits) {}

    Outcome read() {
        if (std::cmp_greater(input_.size(), limits_.max_input_bytes)) {
            at_ = static_cast<std::size_t>(limits_.max_input_bytes);
            fail("input_limit", "JSON input exceeds configured byte limit");
        }
        if (!failed()) check_encoding();
        if (!failed()) read_value(1);
        skip_blanks();
        if (byte() >= 0) fail("trailing_input", "trailing input after JSON value");
        return std::move(outcome_);
    }

  private:
    int byte(std::size_t ahead = 0) const {  // -1 behind the end.
        if (at_ + ahead >= input_.size()) return -1;
        return static_cast<unsigned char>(input_[at_ + ahead]);
    }
    bool failed() const { return !outcome_.code.empty(); }
    // The first failure stays.
    void fail(const char* code, const char* message, std::optional<std::size_t> place = {}) {
        if (failed()) return;
        const std::string_view before = input_.substr(0, place.value_or(at_));
        outcome_ = {.code = code,
                    .message = message,
                    .offset = std::ssize(before),
                    .line = 1 + std::count(before.begin(), before.end(), '\n'),
                    .column = static_cast<std::int64_t>(before.size() - before.rfind('\n')),
                    .compact = {}};
    }
    void fail_or_end(const char* message, const char* at_end) {
        byte() < 0 ? fail("unexpected_end", at_end) : fail("unexpected_token", message);
    }

    // RFC 3629, section 4, row by row.
    std::size_t character_length() const {
        const auto in = [this](std::size_t i, int low, int high) {
            return byte(i) >= low && byte(i) <= high;
        };
        const auto tail = [&](std::size_t i) { return in(i, 0x80, 0xBF); };
        if (in(0, 0x00, 0x7F)) return 1;
        if (in(0, 0xC2, 0xDF)) return tail(1) ? 2 : 0;
        if (in(0, 0xE0, 0xE0)) return in(1, 0xA0, 0xBF) && tail(2) ? 3 : 0;
        if (in(0, 0xED, 0xED)) return in(1, 0x80, 0x9F) && tail(2) ? 3 : 0;
        if (in(0, 0xE1, 0xEF)) return tail(1) && tail(2) ? 3 : 0;
        if (in(0, 0xF0, 0xF0)) return in(1, 0x90, 0xBF) && tail(2) && tail(3) ? 4 : 0;
        if (in(0, 0xF1, 0xF3)) return tail(1) && tail(2) && tail(3) ? 4 : 0;
        if (in(0, 0xF4, 0xF4)) return in(1, 0x80, 0x8F) && tail(2) && tail(3) ? 4 : 0;
        return 0;
    }
    void check_encoding() {
        while (character_length() > 0) at_ += character_length();
        if (byte() >= 0) fail("invalid_unicode", "JSON input is not valid UTF-8");
        at_ = 0;
    }

    void skip_blanks() {
        while (byte() == ' ' || byte() == '\t' || byte() == '\n' || byte() == '\r') ++at_;
    }
    // Takes over a byte of structure.
    void take() {
        outcome_.compact += input_[at_++];
        skip_blanks();
    }

    void read_value(std::int64_t depth) {
        skip_blanks();
        if (depth > limits_.max_depth) {
            return fail("depth_limit", "JSON nesting exceeds configured limit");
        }
        if (++nodes_ > limits_.max_nodes) {
            return fail("node_limit", "JSON node count exceeds configured limit");
        }
        const int first = byte();
        if (first < 0) return fail("unexpected_end", "expected JSON value");
        if (first == '{' || first == '[') return read_list(depth, first == '{');
        if (first == '"') return write_string(read_string());
        if ((first >= '0' && first <= '9') || first == '-' || first == '+') return read_number();
        for (const std::string_view word : {"true", "false", "null"}) {
            if (input_.substr(at_, word.size()) != word) continue;
            outcome_.compact += word;
            at_ += word.size();
            return;
        }
        fail("unexpected_token", "unexpected token in JSON input");
    }

    void read_list(std::int64_t depth, bool object) {
        std::multiset<std::string> keys;
        const char end = object ? '}' : ']';
        take();
        while (byte() != end) {
            if (object) read_key(keys);
            if (!failed()) read_value(depth + 1);
            if (failed()) return;
            skip_blanks();
            if (byte() == end) break;
            if (byte() != ',') {
                return object ? fail_or_end("expected comma or closing brace",
                                            "unterminated JSON object")
                              : fail_or_end("expected comma or closing bracket",
                                            "unterminated JSON array");
            }
            take();
            if (byte() != end) continue;
            return fail("unexpected_token",
                        object ? "trailing comma in JSON object" : "trailing comma in JSON array");
        }
        take();
    }
    void read_key(std::multiset<std::string>& keys) {
        if (byte() != '"') {
            return fail_or_end("JSON object key must be a string", "unterminated JSON object");
        }
        const std::string key = read_string();
        if (std::ssize(keys) == limits_.max_object_members) {
            return fail("node_limit", "JSON object member count exceeds configured limit");
        }
        keys.insert(key);
        if (limits_.reject_duplicate_keys && keys.count(key) > 1) {
            return fail("duplicate_key", "duplicate JSON object key");
        }
        write_string(key);
        skip_blanks();
        if (byte() != ':') return fail("unexpected_token", "expected colon after JSON object key");
        take();
    }

    void read_number() {
        const std::size_t end = input_.find_first_not_of("0123456789+-.eE", at_);
        const std::string run(input_.substr(at_, end - at_));
        if (!is_number(run)) return fail("invalid_number", "invalid JSON number");
        outcome_.compact += run;
        at_ += run.size();
    }

    std::string read_string() {
        std::string text;
        for (++at_; byte() != '"' && !failed();) {
            const std::size_t source = at_;
            if (byte() < 0) {
                fail("unexpected_end", "unterminated JSON string");
            } else if (byte() < 0x20) {
                fail("unexpected_token", "unescaped control byte in JSON string");
            } else if (byte() == '\\') {
                read_escape(text);
            } else {
                text += input_.substr(at_, character_length());
                at_ += character_length();
            }
            if (std::cmp_less_equal(text.size(), limits_.max_string_bytes)) continue;
            fail("string_limit", "JSON string exceeds configured limit", source);
        }
        ++at_;
        return text;
    }

    void read_escape(std::string& text) {
        const std::size_t start = at_++;
        if (byte() < 0) return fail("unexpected_end", "unterminated JSON escape");
        const char kind = input_[at_++];
        const std::size_t letter = kLetters.find(kind);
        if (letter != std::string_view::npos) return text.push_back(kMeanings[letter]);
        if (kind != 'u') return fail("invalid_escape", "invalid JSON string escape", at_ - 1);
        const std::int64_t unit = read_unit();
        if (unit < 0xD800 || unit > 0xDFFF) return write_utf8(text, unit);
        if (unit >= 0xDC00) {
            return fail("invalid_unicode", "unexpected JSON low surrogate", start);
        }
        const std::size_t second = at_;
        if (input_.size() - at_ < 6 || byte() != '\\' || byte(1) != 'u') {
            return fail("invalid_unicode", "missing JSON low surrogate");
        }
        at_ += 2;
        const std::int64_t low = read_unit();
        if (low < 0xDC00 || low > 0xDFFF) {
            return fail("invalid_unicode", "invalid JSON surrogate pair", second);
        }
        write_utf8(text, 0x10000 + (unit - 0xD800) * 0x400 + (low - 0xDC00));
    }
    std::int64_t read_unit() {
        std::int64_t unit = 0;
        for (int i = 0; i < 4; ++i, ++at_) {
            if (std::isxdigit(byte()) == 0) fail("invalid_unicode", "invalid JSON Unicode escape");
            if (failed()) return 0;
            unit = unit * 16 + (byte() <= '9' ? byte() - '0' : (byte() | 0x20) - 'a' + 10);
        }
        return unit;
    }
    static void write_utf8(std::string& text, std::int64_t point) {
        const int tails = point < 0x80 ? 0 : point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
        constexpr int kLeads[] = {0, 0xC0, 0xE0, 0xF0};
        text += static_cast<char>(kLeads[tails] + (point >> (6 * tails)));
        for (int i = tails; i-- > 0;) text += static_cast<char>(0x80 + (point >> (6 * i)) % 64);
    }

    void write_string(const std::string& text) {
        if (failed()) return;
        std::string& out = outcome_.compact;
        out += '"';
        for (const char c : text) {
            const std::size_t letter = kMeanings.find(c);
            char escape[8] = {c};
            if (letter != std::string_view::npos && c != '/') {
                std::snprintf(escape, sizeof escape, "\\%c", kLetters[letter]);
            } else if (static_cast<unsigned char>(c) < 0x20) {
                std::snprintf(escape, sizeof escape, "\\u%04x", c & 0x1F);
            }
            out += escape;
        }
        out += '"';
    }

    std::string_view input_;
    JsonLimits limits_;
    std::size_t at_ = 0;
    std::int64_t nodes_ = 0;
    Outcome outcome_;
};

/// `limits` must lie in their ranges.
inline Outcome read_json(std::string_view input, const JsonLimits& limits) {
    return Reader(input, limits).read();
}

/// What write_pretty_json gives for a value whose compact text this is.
inline std::string indent_json(std::string_view compact) {
    std::string out;
    std::size_t depth = 0;
    bool quoted = false;
    const auto begin_line = [&] { out.append(1, '\n').append(2 * depth, ' '); };
    for (std::size_t i = 0; i < compact.size(); ++i) {
        const char c = compact[i];
        const bool closes = c == '}' || c == ']';
        if (closes && !quoted) {
            --depth;
            if (compact[i - 1] != '{' && compact[i - 1] != '[') begin_line();
        }
        out += c;
        if (quoted && c == '\\') out += compact[++i];
        if (c == '"') quoted = !quoted;
        if (quoted || c == '"') continue;
        if (c == ':') out += ' ';
        const bool opens = c == '{' || c == '[';
        if (opens) ++depth;
        if (c == ',' || (opens && compact[i + 1] != '}' && compact[i + 1] != ']')) begin_line();
    }
    return out;
}

}  // namespace quorvane::reference
