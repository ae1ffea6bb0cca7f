#pragma once

#include <string_view>

namespace quorvane {

/// The address text of the first usable name server in the bytes of a resolver file
/// (resolv.conf(5)), or "127.0.0.53" when there is none.  A line counts only if it is exactly
/// "nameserver ", in lower case and without whitespace before it, and an IPv4 literal.  A carriage
/// return at its end is dropped.
[[nodiscard]] std::string_view choose_name_server(std::string_view resolver_file);

}  // namespace quorvane
