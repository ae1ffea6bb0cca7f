// A response read at once and in pieces: one verdict.  The first byte is the body limit,
// the second the size of the pieces.  The same bytes as a callback, whose rules are the unit
// tests'.

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const std::int64_t limit = data[0];
    const std::size_t piece = std::max<std::size_t>(data[1], 1);
    const std::string_view text = as_text(data + 2, size - 2);
    check_chunks(text, limit);
    const auto code = quorvane::judge_callback(text, "S", "R");
    check(!code || (text.starts_with("GET /callback?") && text.find(*code) != text.npos));

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
