#include "json/number.h"

#include <charconv>

namespace quorvane {
namespace {

// Skips one digit or more; null when there is none.
const char* skip_digits(const char* at, const char* end) {
    if (at == end || !is_digit(*at)) return nullptr;
    while (at != end && is_digit(*at)) ++at;
    return at;
}

const char* skip_integer_part(const char* at, const char* end) {
    if (at != end && *at == '-') ++at;
    if (at != end && *at == '0') return at + 1;
    return skip_digits(at, end);
}

const char* skip_exponent_digits(const char* at, const char* end) {
    if (at != end && (*at == '+' || *at == '-')) ++at;
    return skip_digits(at, end);
}

}  // namespace

NumberScan scan_number(const char* at, const char* end) {
    const char* run_end = at;
    while (run_end != end && is_number_byte(*run_end)) ++run_end;

    NumberScan scan = {run_end, false, false};
    at = skip_integer_part(at, run_end);
    if (at == nullptr) return scan;
    scan.is_integer = at == run_end;
    if (at != run_end && *at == '.') at = skip_digits(at + 1, run_end);
    if (at == nullptr) return scan;
    if (at != run_end && (*at == 'e' || *at == 'E')) at = skip_exponent_digits(at + 1, run_end);
    scan.valid = at == run_end;
    return scan;
}

std::optional<std::int64_t> integer_value(std::string_view literal) {
    std::int64_t value = 0;
    const char* const end = literal.data() + literal.size();
    const std::from_chars_result result = std::from_chars(literal.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return value;
}

}  // namespace quorvane
