#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

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

class Reader {
  public:
    Reader(std::string_view input, const JsonLimits& limits) : input_(input), limits_(limits) {}

    Outcome read() {
        if (size() > limits_.max_input_bytes) {
            at_ = limits_.max_input_bytes;
            fail("input_limit", "JSON input exceeds configured byte limit");
        } else {
            check_encoding();
        }
        if (!failed()) read_value(1);
        if (!failed()) {
            skip_blanks();
            if (at_ < size()) fail("trailing_input", "trailing input after JSON value");
        }
        if (failed()) find_place();
        return std::move(outcome_);
    }

  private:
    std::int64_t size() const { return static_cast<std::int64_t>(input_.size()); }
    int byte(std::int64_t ahead = 0) const {  // -1 behind the end.
        if (at_ + ahead >= size()) return -1;
        return static_cast<unsigned char>(input_[static_cast<std::size_t>(at_ + ahead)]);
    }
    bool failed() const { return !outcome_.code.empty(); }
    void fail(const char* code, const char* message) {
        if (failed()) return;
        outcome_.code = code;
        outcome_.message = message;
        outcome_.offset = at_;
    }
    void fail_or_end(const char* message, const char* at_end) {
        byte() < 0 ? fail("unexpected_end", at_end) : fail("unexpected_token", message);
    }
    void find_place() {
        outcome_.compact.clear();
        outcome_.line = outcome_.column = 1;
        for (std::int64_t i = 0; i < outcome_.offset; ++i) {
            const bool line_ends = input_[static_cast<std::size_t>(i)] == '\n';
            outcome_.line += line_ends ? 1 : 0;
            outcome_.column = line_ends ? 1 : outcome_.column + 1;
        }
    }

    // RFC 3629, section 4, row by row.
    std::int64_t character_length() const {
        const auto in = [this](std::int64_t i, int low, int high) {
            return byte(i) >= low && byte(i) <= high;
        };
        const auto tail = [&](std::int64_t i) { return in(i, 0x80, 0xBF); };
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
        while (at_ < size() && character_length() > 0) at_ += character_length();
        if (at_ < size()) return fail("invalid_unicode", "JSON input is not valid UTF-8");
        at_ = 0;
    }

    void skip_blanks() {
        while (byte() == ' ' || byte() == '\t' || byte() == '\n' || byte() == '\r') ++at_;
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
        if (first == '{') return read_object(depth);
        if (first == '[') return read_array(depth);
        if (first == '"') return write_string(read_string());
        if ((first >= '0' && first <= '9') || first == '-' || first == '+') return read_number();
        for (const std::string_view word : {"true", "false", "null"}) {
            if (input_.substr(static_cast<std::size_t>(at_), word.size()) != word) continue;
            outcome_.compact += word;
            at_ += static_cast<std::int64_t>(word.size());
            return;
        }
        fail("unexpected_token", "unexpected token in JSON input");
    }

    void read_array(std::int64_t depth) {
        outcome_.compact += '[';
        ++at_;
        skip_blanks();
        while (!failed() && byte() != ']') {
            read_value(depth + 1);
            if (failed()) return;
            skip_blanks();
            if (byte() == ']') break;
            if (byte() != ',') {
                return fail_or_end("expected comma or closing bracket", "unterminated JSON array");
            }
            outcome_.compact += ',';
            ++at_;
            skip_blanks();
            if (byte() == ']') fail("unexpected_token", "trailing comma in JSON array");
        }
        ++at_;
        outcome_.compact += ']';
    }

    void read_object(std::int64_t depth) {
        std::set<std::string> keys;
        std::int64_t members = 0;
        outcome_.compact += '{';
        ++at_;
        skip_blanks();
        while (!failed() && byte() != '}') {
            if (byte() != '"') {
                return fail_or_end("JSON object key must be a string", "unterminated JSON object");
            }
            const std::string key = read_string();
            if (failed()) return;
            if (members++ == limits_.max_object_members) {
                return fail("node_limit", "JSON object member count exceeds configured limit");
            }
            if (!keys.insert(key).second && limits_.reject_duplicate_keys) {
                return fail("duplicate_key", "duplicate JSON object key");
            }
            write_string(key);
            skip_blanks();
            if (byte() != ':') {
                return fail("unexpected_token", "expected colon after JSON object key");
            }
            outcome_.compact += ':';
            ++at_;
            read_value(depth + 1);
            if (failed()) return;
            skip_blanks();
            if (byte() == '}') break;
            if (byte() != ',') {
                return fail_or_end("expected comma or closing brace", "unterminated JSON object");
            }
            outcome_.compact += ',';
            ++at_;
            skip_blanks();
            if (byte() == '}') fail("unexpected_token", "trailing comma in JSON object");
        }
        ++at_;
        outcome_.compact += '}';
    }

    void read_number() {
        const std::int64_t start = at_;
        while (byte() >= 0 && std::string_view("0123456789+-.eE").find(static_cast<char>(byte())) !=
                                  std::string_view::npos) {
            ++at_;
        }
        const std::string run(
            input_.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(at_ - start)));
        if (is_number(run)) {
            outcome_.compact += run;
        } else {
            at_ = start;
            fail("invalid_number", "invalid JSON number");
        }
    }
    static bool is_number(const std::string& run) {
        const char* at = run.c_str();
        const auto digits = [&at] {
            const char* const start = at;
            while (*at >= '0' && *at <= '9') ++at;
            return at - start;
        };
        if (*at == '-') ++at;
        const bool zero = *at == '0';
        const std::ptrdiff_t whole = digits();
        if (whole == 0 || (zero && whole > 1)) return false;
        if (*at == '.' && (++at, digits() == 0)) return false;
        if (*at == 'e' || *at == 'E') {
            ++at;
            if (*at == '+' || *at == '-') ++at;
            if (digits() == 0) return false;
        }
        return *at == '\0';
    }

    // Takes what `text` grew by at the place where it came from.
    bool fits(const std::string& text, std::int64_t source) {
        if (static_cast<std::int64_t>(text.size()) <= limits_.max_string_bytes) return true;
        at_ = source;
        fail("string_limit", "JSON string exceeds configured limit");
        return false;
    }

    std::string read_string() {
        std::string text;
        for (++at_; byte() != '"';) {
            const std::int64_t source = at_;
            if (byte() < 0) {
                fail("unexpected_end", "unterminated JSON string");
            } else if (byte() < 0x20) {
                fail("unexpected_token", "unescaped control byte in JSON string");
            } else if (byte() == '\\') {
                read_escape(text);
            } else {
                const std::int64_t length = character_length();
                text +=
                    input_.substr(static_cast<std::size_t>(at_), static_cast<std::size_t>(length));
                at_ += length;
            }
            if (failed() || !fits(text, source)) return {};
        }
        ++at_;
        return text;
    }

    void read_escape(std::string& text) {
        const std::int64_t start = at_++;
        if (byte() < 0) return fail("unexpected_end", "unterminated JSON escape");
        constexpr std::string_view kLetters = "\"\\/bfnrt";
        constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
        const std::size_t letter = kLetters.find(static_cast<char>(byte()));
        if (letter != std::string_view::npos && byte() < 0x80) {
            text += kMeanings[letter];
            ++at_;
            return;
        }
        if (byte() != 'u') return fail("invalid_escape", "invalid JSON string escape");
        ++at_;
        const std::int64_t unit = read_unit();
        if (failed()) return;
        if (unit < 0xD800 || unit > 0xDFFF) return write_utf8(text, unit);
        if (unit >= 0xDC00) {
            at_ = start;
            return fail("invalid_unicode", "unexpected JSON low surrogate");
        }
        if (size() - at_ < 6 || byte() != '\\' || byte(1) != 'u') {
            return fail("invalid_unicode", "missing JSON low surrogate");
        }
        const std::int64_t second = at_;
        at_ += 2;
        const std::int64_t low = read_unit();
        if (failed()) return;
        if (low >= 0xDC00 && low <= 0xDFFF) {
            return write_utf8(text, 0x10000 + (unit - 0xD800) * 0x400 + (low - 0xDC00));
        }
        at_ = second;
        fail("invalid_unicode", "invalid JSON surrogate pair");
    }
    std::int64_t read_unit() {
        std::int64_t unit = 0;
        for (int i = 0; i < 4; ++i, ++at_) {
            const int digit = byte();
            const bool decimal = digit >= '0' && digit <= '9';
            const bool letter = (digit >= 'a' && digit <= 'f') || (digit >= 'A' && digit <= 'F');
            if (!decimal && !letter) {
                fail("invalid_unicode", "invalid JSON Unicode escape");
                return 0;
            }
            unit = unit * 16 + (decimal ? digit - '0' : (digit | 0x20) - 'a' + 10);
        }
        return unit;
    }
    static void write_utf8(std::string& text, std::int64_t point) {
        if (point < 0x80) {
            text += static_cast<char>(point);
            return;
        }
        const int tails = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
        constexpr int kLeads[] = {0, 0xC0, 0xE0, 0xF0};
        text += static_cast<char>(kLeads[tails] + (point >> (6 * tails)));
        for (int i = tails - 1; i >= 0; --i) {
            text += static_cast<char>(0x80 + (point >> (6 * i)) % 64);
        }
    }

    void write_string(const std::string& text) {
        std::string& out = outcome_.compact;
        constexpr std::string_view kMeanings = "\"\\\b\f\n\r\t";
        constexpr std::string_view kLetters = "\"\\bfnrt";
        constexpr std::string_view kDigits = "0123456789abcdef";
        out += '"';
        for (const char c : text) {
            const std::size_t letter = kMeanings.find(c);
            if (letter != std::string_view::npos) {
                out += {'\\', kLetters[letter]};
            } else if (static_cast<unsigned char>(c) < 0x20) {
                out += {'\\',
                        'u',
                        '0',
                        '0',
                        kDigits[static_cast<std::size_t>(c / 16)],
                        kDigits[static_cast<std::size_t>(c % 16)]};
            } else {
                out += c;
            }
        }
        out += '"';
    }

    std::string_view input_;
    JsonLimits limits_;
    std::int64_t at_ = 0;
    std::int64_t nodes_ = 0;
    Outcome outcome_;
};

/// `limits` must lie in their ranges.
inline Outcome read_json(std::string_view input, const JsonLimits& limits) {
    return Reader(input, limits).read();
}

}  // namespace quorvane::reference
