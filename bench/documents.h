#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

/// JSON documents to measure with: the same bytes on every machine and in every run.
namespace quorvane::bench {

struct DocumentKind {
    std::string_view name;
    std::string (*make)(std::size_t bytes);  ///< About `bytes` long, never longer than asked for.
};

/// The size that is measured unless another is asked for: just under the 8 MiB limit.
inline constexpr std::size_t kFullSize = 8'300'000;

std::string make_configuration(std::size_t bytes);  ///< Nested, as services keep them, compact.
std::string make_indented(std::size_t bytes);       ///< The same as people keep it.
std::string make_integers(std::size_t bytes);       ///< At most 1,000,000, of 1 to 7 digits.
std::string make_keys(std::size_t bytes);           ///< One object, at most 100,000 members.
std::string make_crafted_keys(std::size_t bytes);   ///< All equal under h = 31 h + c.
std::string make_long_strings(std::size_t bytes);   ///< ASCII without escapes, 100 to 40,000 bytes.
std::string make_escapes(std::size_t bytes);        ///< An escape every few bytes.
std::string make_non_ascii(std::size_t bytes);  ///< Texts of two, three and four byte characters.
std::string make_nested(std::size_t bytes);     ///< Towers of arrays and objects, 62 high.
std::string make_small_objects(
    std::size_t bytes);  ///< {"id":1,"name":"...","on":true} by the thousand.

inline constexpr std::array<DocumentKind, 10> kDocumentKinds = {{
    {"configuration", make_configuration},
    {"indented", make_indented},
    {"integers", make_integers},
    {"keys", make_keys},
    {"crafted_keys", make_crafted_keys},
    {"long_strings", make_long_strings},
    {"escapes", make_escapes},
    {"non_ascii", make_non_ascii},
    {"nested", make_nested},
    {"small_objects", make_small_objects},
}};

}  // namespace quorvane::bench
