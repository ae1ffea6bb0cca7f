#include "dns/name_server.h"

#include "net/address.h"
#include "support/text.h"

namespace quorvane {

std::string_view choose_name_server(std::string_view resolver_file) {
    constexpr std::string_view kKeyword = "nameserver ";
    for (std::string_view line : split(resolver_file, '\n')) {
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (!line.starts_with(kKeyword)) continue;
        line.remove_prefix(kKeyword.size());
        if (parse_ipv4(line)) return line;
    }
    return "127.0.0.53";  // The local stub of systemd-resolved.
}

}  // namespace quorvane
