#include "http/chunked.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "support/text.h"

namespace quorvane {

ChunkScanner::Line ChunkScanner::take_line(std::string_view data) {
    const std::size_t end = data.find("\r\n", searched_);
    if (end == std::string_view::npos) {
        // The last byte may be the CR of a line end.
        searched_ = std::max(searched_, data.empty() ? 0 : data.size() - 1);
        return {};
    }
    const std::string_view line = data.substr(position_, end - position_);
    position_ = searched_ = end + 2;
    return {true, line};
}

void ChunkScanner::read_size(std::string_view line) {
    const std::int64_t size =
        parse_hex(split_once(line, ';').before, max_body_bytes_ - decoded_bytes_);
    chunk_size_ = static_cast<std::size_t>(std::max<std::int64_t>(size, 0));
    state_ = size < 0 ? State::kError : size == 0 ? State::kTrailer : State::kData;
}

ChunkStep ChunkScanner::take_chunk(std::string_view data) {
    const std::size_t arrived = data.size() - position_;
    if (arrived < 2 || arrived - 2 < chunk_size_) return ChunkStep::kMore;
    if (data.substr(position_ + chunk_size_, 2) != "\r\n") {
        state_ = State::kError;
        return ChunkStep::kError;
    }
    chunk_begin_ = position_;
    position_ = searched_ = position_ + chunk_size_ + 2;
    decoded_bytes_ += static_cast<std::int64_t>(chunk_size_);
    state_ = State::kSize;
    return ChunkStep::kChunk;
}

ChunkStep ChunkScanner::next(std::string_view data) {
    for (;;) {
        if (state_ == State::kError) return ChunkStep::kError;
        if (state_ == State::kEnd) return ChunkStep::kEnd;
        if (state_ == State::kData) return take_chunk(data);
        const Line line = take_line(data);
        if (!line.found) return ChunkStep::kMore;
        if (state_ == State::kSize) {
            read_size(line.text);
        } else if (line.text.empty()) {
            state_ = State::kEnd;
        }
    }
}

ChunkedDecode decode_chunked(ByteBuffer data, std::int64_t max_body_bytes) {
    ChunkedDecode decode;
    ChunkScanner scanner(max_body_bytes);
    // Decoded bytes lie before their place in the input, which the scanner never reads again.
    std::size_t decoded = 0;
    ChunkStep step = scanner.next(data.view());
    for (; step == ChunkStep::kChunk; step = scanner.next(data.view())) {
        std::memmove(data.data() + decoded, data.data() + scanner.chunk_begin(),
                     scanner.chunk_size());
        decoded += scanner.chunk_size();
    }
    data.truncate(decoded);
    decode.body = std::move(data);
    decode.complete = step == ChunkStep::kEnd;
    decode.error = step == ChunkStep::kError;
    if (decode.complete) decode.consumed = static_cast<std::int64_t>(scanner.position());
    return decode;
}

}  // namespace quorvane
