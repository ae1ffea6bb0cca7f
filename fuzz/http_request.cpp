// The parts of a request line stand where they were found, and a callback is one to the letter.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "http/reader.h"
#include "session/callback.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const quorvane::HttpRequest request = quorvane::parse_request(text);
    std::string line = request.method;
    if (!request.path.empty() || !request.query.empty()) line += " " + request.path;
    if (!request.query.empty()) line += "?" + request.query;
    if (!text.starts_with(line) || !text.ends_with(request.body.view())) __builtin_trap();
    for (const quorvane::HttpHeader& header : request.headers) {
        if (header.name.find(':') != std::string::npos || header.value.starts_with(' ')) {
            __builtin_trap();
        }
    }
    const auto code = quorvane::judge_callback(text, "S", "R");
    if (!code) return 0;
    const std::string query = "&" + request.query + "&";
    const auto has = [&query](const std::string& part) { return query.find(part) != query.npos; };
    if (!text.starts_with("GET /callback?") || text.find("\r\n\r\n") == text.npos) __builtin_trap();
    if (!has("&state=S&") || !has("&request=R&")) __builtin_trap();
    if (!code->empty() && !has("&code=" + *code + "&")) __builtin_trap();
    return 0;
}
