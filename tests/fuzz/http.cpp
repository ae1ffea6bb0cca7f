// A response read at once and in pieces: one verdict.  The first byte is the body limit,
// the second the size of the pieces.  The same bytes as a request: its line is found in the input,
// and a callback is one to the letter.

#include <algorithm>

#include "http/reader.h"
#include "session/callback.h"
#include "target.h"

namespace {

void check_chunks(std::string_view text, std::int64_t limit) {
    const auto decode = [limit](std::string_view bytes) {
        return quorvane::decode_chunked(quorvane::ByteBuffer::copy_of(bytes), limit);
    };
    const quorvane::ChunkedDecode got = decode(text);
    check(std::ssize(got.body.view()) <= limit && !(got.complete && got.error));
    const std::string_view used = text.substr(0, static_cast<std::size_t>(got.consumed));
    check(decode(used).complete == got.complete);
    if (got.complete) check(!decode(used.substr(0, used.size() - 1)).complete);
}

void check_request(std::string_view text) {
    const quorvane::HttpRequest request = quorvane::parse_request(text);
    std::string line = request.method;
    if (!request.path.empty() || !request.query.empty()) line += " " + request.path;
    if (!request.query.empty()) line += "?" + request.query;
    check(text.starts_with(line) && text.ends_with(request.body.view()));
    const auto code = quorvane::judge_callback(text, "S", "R");
    if (!code) return;
    const std::string query = "&" + request.query + "&";
    check(text.starts_with("GET /callback?") && text.find("\r\n\r\n") != text.npos);
    const std::string parts[] = {"&state=S&", "&request=R&", "&code=" + *code + "&"};
    for (const std::string& part : parts)
        check(query.find(part) != query.npos || part == "&code=&");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const std::int64_t limit = data[0];
    const std::size_t piece = std::max<std::size_t>(data[1], 1);
    const std::string_view text = as_text(data + 2, size - 2);
    check_chunks(text, limit);
    check_request(text);

    const auto parse = [limit](std::string_view bytes) {
        return quorvane::parse_response(quorvane::ByteBuffer::copy_of(bytes), limit);
    };
    const quorvane::ResponseParse whole = parse(text);
    quorvane::ResponseFraming framing(limit);
    for (std::size_t end = 0; end < text.size() && !framing.complete; end += piece) {
        framing.advance(text.substr(0, end));
        check(framing.complete == parse(text.substr(0, end)).complete);
    }
    framing.advance(text);
    check(framing.complete == whole.complete);
    check(!whole.complete || framing.body_bytes == std::ssize(whole.response.body.view()));
    check(whole.ok == (whole.response.status >= 100));
    return 0;
}
