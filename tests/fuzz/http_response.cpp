// A response read at once and in pieces: one verdict.  The first byte is the body limit,
// the second the size of the pieces.

#include <algorithm>

#include "http/reader.h"
#include "target.h"

namespace {

void check_chunks(std::string_view text, std::int64_t limit) {
    const auto decode_copy = [limit](std::string_view bytes) {
        return quorvane::decode_chunked(quorvane::ByteBuffer::copy_of(bytes), limit);
    };
    const quorvane::ChunkedDecode decode = decode_copy(text);
    check(std::ssize(decode.body.view()) <= limit);
    check(!(decode.complete && decode.error));
    if (!decode.complete) return;
    const std::string_view used = text.substr(0, static_cast<std::size_t>(decode.consumed));
    check(decode_copy(used).complete);
    check(!decode_copy(used.substr(0, used.size() - 1)).complete);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const std::int64_t limit = data[0];
    const std::size_t piece = std::max<std::size_t>(data[1], 1);
    const std::string_view text = as_text(data + 2, size - 2);
    check_chunks(text, limit);

    const quorvane::ResponseParse parse =
        quorvane::parse_response(quorvane::ByteBuffer::copy_of(text), limit);
    quorvane::ResponseFraming framing(limit);
    for (std::size_t end = 0; end < text.size() && !framing.complete; end += piece) {
        const std::string_view part = text.substr(0, end);
        framing.advance(part);
        check(framing.complete ==
              quorvane::parse_response(quorvane::ByteBuffer::copy_of(part), limit).complete);
    }
    framing.advance(text);
    check(framing.complete == parse.complete);
    check(!parse.complete || framing.body_bytes == std::ssize(parse.response.body.view()));
    check(parse.ok == (parse.response.status >= 100));
    return 0;
}
