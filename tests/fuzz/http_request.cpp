// The parts of a request line are found in the input, and a callback is one to the letter.

#include <string>

#include "http/reader.h"
#include "session/callback.h"
#include "target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = as_text(data, size);
    const quorvane::HttpRequest request = quorvane::parse_request(text);
    std::string line = request.method;
    if (!request.path.empty() || !request.query.empty()) line += " " + request.path;
    if (!request.query.empty()) line += "?" + request.query;
    check(text.starts_with(line) && text.ends_with(request.body.view()));
    for (const quorvane::HttpHeader& header : request.headers) {
        check(header.name.find(':') == std::string::npos && !header.value.starts_with(' '));
    }
    const auto code = quorvane::judge_callback(text, "S", "R");
    if (!code) return 0;
    const std::string query = "&" + request.query + "&";
    const auto has = [&query](const std::string& part) { return query.find(part) != query.npos; };
    check(text.starts_with("GET /callback?") && text.find("\r\n\r\n") != text.npos);
    check(has("&state=S&") && has("&request=R&"));
    check(code->empty() || has("&code=" + *code + "&"));
    return 0;
}
