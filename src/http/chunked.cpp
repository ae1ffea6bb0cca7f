#include "http/chunked.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "support/text.h"

namespace quorvane {

ChunkStep ChunkScanner::take_chunk(std::string_view data) {
    const std::size_t arrived_bytes = data.size() - position;
    if (arrived_bytes < 2 || arrived_bytes - 2 < chunk_bytes) return ChunkStep::kMore;
    if (data.substr(position + chunk_bytes, 2) != "\r\n") {
        state_ = State::kError;
        return ChunkStep::kError;
    }
    chunk_begin = position;
    position = searched_ = position + chunk_bytes + 2;
    decoded_bytes += static_cast<std::int64_t>(chunk_bytes);
    state_ = State::kSize;
    return ChunkStep::kChunk;
}

ChunkStep ChunkScanner::next(std::string_view data) {
    constexpr std::string_view kLineEnd = "\r\n";
    while (state_ == State::kSize || state_ == State::kTrailer) {
        const std::size_t end = data.find(kLineEnd, searched_);
        if (end == std::string_view::npos) {
            // The last byte may be the CR of a line end.
            searched_ = std::max(searched_, data.empty() ? 0 : data.size() - 1);
            return ChunkStep::kMore;
        }
        const std::string_view line = data.substr(position, end - position);
        position = searched_ = end + kLineEnd.size();
        if (state_ == State::kSize) {
            const std::string_view digits = split_once(line, ';').before;
            const std::int64_t size = parse_hex(digits, max_body_bytes - decoded_bytes);
            chunk_bytes = static_cast<std::size_t>(std::max<std::int64_t>(size, 0));
            state_ = size < 0 ? State::kError : size == 0 ? State::kTrailer : State::kData;
        } else if (line.empty()) {
            state_ = State::kEnd;
        }
    }
    if (state_ == State::kData) return take_chunk(data);
    return state_ == State::kEnd ? ChunkStep::kEnd : ChunkStep::kError;
}

ChunkedDecode decode_chunked(ByteBuffer data, std::int64_t max_body_bytes) {
    ChunkedDecode decode;
    ChunkScanner scanner(max_body_bytes);
    // Decoded bytes lie before their place in the input, which the scanner never reads again.
    std::size_t decoded_bytes = 0;
    ChunkStep step = scanner.next(data.view());
    for (; step == ChunkStep::kChunk; step = scanner.next(data.view())) {
        std::memmove(data.data() + decoded_bytes, data.data() + scanner.chunk_begin,
                     scanner.chunk_bytes);
        decoded_bytes += scanner.chunk_bytes;
    }
    data.truncate(decoded_bytes);
    decode.body = std::move(data);
    decode.complete = step == ChunkStep::kEnd;
    decode.error = step == ChunkStep::kError;
    if (decode.complete) decode.consumed = static_cast<std::int64_t>(scanner.position);
    return decode;
}

}  // namespace quorvane
