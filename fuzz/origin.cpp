// A valid origin keeps its promises, and nothing but its own text makes it.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "session/origin.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const quorvane::ServiceOrigin origin = quorvane::parse_service_origin(text);
    if (origin.text != text) __builtin_trap();
    if (!origin.valid) return 0;
    const std::string scheme = origin.tls ? "https://" : "http://";
    const std::string_view rest = text.substr(scheme.size());
    const bool local = origin.host == "localhost" || origin.host == "127.0.0.1";
    if (!text.starts_with(scheme + origin.host) || origin.host.empty()) __builtin_trap();
    if (origin.port < 1 || origin.port > 65535 || !(origin.tls || local)) __builtin_trap();
    if (rest.find_first_of("/@?#[]_% \t\r\n") != std::string_view::npos) __builtin_trap();
    // Written out again with its port, the origin is the same one.
    const std::string whole = scheme + origin.host + ":" + std::to_string(origin.port);
    const quorvane::ServiceOrigin again = quorvane::parse_service_origin(whole);
    if (!again.valid || again.host != origin.host || again.port != origin.port) __builtin_trap();
    return 0;
}
