#pragma once

#include <cstdint>
#include <string_view>

#include "support/bytes.h"

/// Chunked bodies (RFC 9112 7.1).
///
/// A chunk counts once its data and the CR LF after it have arrived.  Chunk extensions and trailer
/// lines are dropped unread.  An error is final: a bad or empty size, data without CR LF after it,
/// or a body that would pass the limit.
namespace quorvane {

/// The most bytes of a body where the caller gives no limit.
inline constexpr std::int64_t kDefaultMaxBodyBytes = 1'048'576;

enum class ChunkStep : std::uint8_t { kMore, kChunk, kEnd, kError };

/// Reads a chunked body while it arrives and remembers its place, so that one pass over the bytes
/// is enough, in whatever pieces they come.
class ChunkScanner {
  public:
    explicit ChunkScanner(std::int64_t max_body_bytes) : max_body_bytes_(max_body_bytes) {}

    /// `data` is the body from its first byte to the last that has arrived; bytes before
    /// `position` are not read again.  kChunk: one more complete chunk has been passed.
    /// kMore: it has not arrived yet.  After kEnd or kError every call returns the same again.
    ChunkStep next(std::string_view data);

    /// The data of the chunk that the last kChunk passed.
    [[nodiscard]] std::size_t chunk_begin() const { return chunk_begin_; }
    [[nodiscard]] std::size_t chunk_size() const { return chunk_size_; }

    /// Input bytes passed; at kEnd, all of them up to the end of the empty line after the body.
    [[nodiscard]] std::size_t position() const { return position_; }

    /// The sizes of all chunks passed, added up.
    [[nodiscard]] std::int64_t decoded_bytes() const { return decoded_bytes_; }

  private:
    enum class State : std::uint8_t { kSize, kData, kTrailer, kEnd, kError };

    ChunkStep take_chunk(std::string_view data);

    std::int64_t max_body_bytes_;
    std::int64_t decoded_bytes_ = 0;  // Invariant: at most the limit, if that is not negative.
    std::size_t position_ = 0;        // Where the current line or chunk data begins.
    std::size_t searched_ = 0;        // No line end begins in [position_, searched_).
    std::size_t chunk_begin_ = 0;
    std::size_t chunk_size_ = 0;
    State state_ = State::kSize;
};

/// The result of `decode_chunked`.
struct ChunkedDecode {
    ByteBuffer body;            ///< The data of the complete chunks, joined.
    std::int64_t consumed = 0;  ///< Input bytes used when `complete`, else 0.
    bool complete = false;      ///< The last chunk and the empty line after it were there.
    bool error = false;         ///< The framing is malformed or the body passes the limit.
};

/// Decodes in place: the buffer becomes the body, and no second one is allocated.
[[nodiscard]] ChunkedDecode decode_chunked(ByteBuffer data,
                                           std::int64_t max_body_bytes = kDefaultMaxBodyBytes);

}  // namespace quorvane
