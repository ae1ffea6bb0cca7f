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
struct ChunkScanner {
    explicit ChunkScanner(std::int64_t max_bytes) : max_body_bytes(max_bytes) {}

    std::int64_t max_body_bytes;
    std::int64_t decoded_bytes = 0;  ///< The sizes of all chunks passed, added up.
    std::size_t position = 0;        ///< Input bytes passed; at kEnd, the empty line among them.
    std::size_t chunk_begin = 0;     ///< Of the chunk that the last kChunk passed.
    std::size_t chunk_bytes = 0;

    /// `data` is the body from its first byte to the last that has arrived; bytes before
    /// `position` are not read again.  kChunk: one more complete chunk has been passed.
    /// kMore: it has not arrived yet.  After kEnd or kError every call returns the same again.
    ChunkStep next(std::string_view data);

  private:
    enum class State : std::uint8_t { kSize, kData, kTrailer, kEnd, kError };

    ChunkStep take_chunk(std::string_view data);

    std::size_t searched_ = 0;  // No line end begins in [position, searched_).
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
