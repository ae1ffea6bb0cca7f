#include "json/number.h"

#include <charconv>

namespace quorvane {
namespace {

// The part of a literal that has not been judged.
struct LiteralRest {
    const char* at;
    const char* end;

    bool take(char byte) {
        if (at == end || *at != byte) return false;
        ++at;
        return true;
    }
    // Takes all digits; false when there is none.
    bool take_digits() {
        const char* const begin = at;
        while (at != end && is_digit(*at)) ++at;
        return at != begin;
    }
};

}  // namespace

NumberScan scan_number(const char* at, const char* end) {
    const char* run_end = at;
    while (run_end != end && is_number_byte(*run_end)) ++run_end;

    NumberScan literal = {run_end, false, false};
    LiteralRest rest = {at, run_end};
    rest.take('-');
    if (!rest.take('0') && !rest.take_digits()) return literal;
    literal.is_integer = rest.at == run_end;
    if (rest.take('.') && !rest.take_digits()) return literal;
    if (rest.take('e') || rest.take('E')) {
        if (!rest.take('+')) rest.take('-');
        if (!rest.take_digits()) return literal;
    }
    literal.valid = rest.at == run_end;
    return literal;
}

std::optional<std::int64_t> integer_value(std::string_view literal) {
    std::int64_t value = 0;
    const char* const end = literal.data() + literal.size();
    const std::from_chars_result result = std::from_chars(literal.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return value;
}

}  // namespace quorvane
