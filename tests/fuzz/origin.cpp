// A valid origin keeps its promises, and nothing but its own text makes it.

#include "session/origin.h"

#include <string>

#include "target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = as_text(data, size);
    const quorvane::ServiceOrigin origin = quorvane::parse_service_origin(text);
    check(origin.text == text);
    if (!origin.valid) return 0;
    const std::string scheme = origin.tls ? "https://" : "http://";
    check(text.starts_with(scheme + std::string(origin.host)) && !origin.host.empty());
    check(origin.port >= 1 && origin.port <= 65535);
    check(origin.tls || origin.host == "localhost" || origin.host == "127.0.0.1");
    const std::string_view rest = text.substr(scheme.size());
    check(rest.find_first_of("/@?#[]_% \t\r\n") == rest.npos);
    // Written out again with its port, the origin is the same one.
    const std::string complete =
        scheme + std::string(origin.host) + ":" + std::to_string(origin.port);
    const quorvane::ServiceOrigin again = quorvane::parse_service_origin(complete);
    check(again.valid && again.host == origin.host && again.port == origin.port);
    return 0;
}
