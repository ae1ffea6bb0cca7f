#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "http/chunked.h"
#include "http/message.h"
#include "support/bytes.h"

/// Received bytes as HTTP/1.1 messages (RFC 9112); no I/O.
///
/// A line ends in CR LF and an empty line ends the head.  A header's value begins after the blanks
/// behind its ":" and keeps everything else; a line without ":" is skipped.
namespace quorvane {

/// What `parse_response` made of a buffer.
struct ResponseParse {
    HttpResponse response;  ///< Empty (status 0) unless `ok`.
    bool ok = false;        ///< The status line gave a status from 100 to 999.
    bool complete = false;  ///< The head and the whole body, as its headers frame it, were there.
};

/// Reads a response.  The body is framed by chunks if Transfer-Encoding says so, else by
/// Content-Length if there is one, else by the end of the connection.
///
/// A response of the last kind is never `complete`, for only the connection's end would tell; nor
/// is one whose framing is malformed or whose body is longer than `body_limit`.  The body of a
/// response that is not complete is what arrived behind the head, of a chunked one the data of
/// its whole chunks.  The buffer becomes the body: its bytes are not copied elsewhere.
[[nodiscard]] ResponseParse parse_response(ByteBuffer received,
                                           std::int64_t body_limit = kDefaultBodyLimit);

/// Tells, while a response arrives, whether it is whole, that is, whether `parse_response` under
/// the same limit would call it complete.  One pass over the bytes, however they come.
class ResponseFraming {
  public:
    explicit ResponseFraming(std::int64_t body_limit)
        : body_limit_(body_limit), chunks_(body_limit) {}

    /// `received` is all that has arrived: the bytes of the last call and those after them.
    void advance(std::string_view received);

    [[nodiscard]] bool whole() const { return whole_; }

    /// The size of a whole message's body, decoded.
    [[nodiscard]] std::int64_t body_bytes() const { return body_bytes_; }

    /// How much is still to come of a body whose length was announced; of any other, 0.
    [[nodiscard]] std::size_t missing_bytes() const { return missing_bytes_; }

  private:
    enum class State : std::uint8_t { kHead, kChunked, kLength, kEndless };

    void read_head(std::string_view head);
    void read_chunks(std::string_view body);

    std::int64_t body_limit_;
    std::int64_t body_bytes_ = 0;  // Under kLength, the length that was announced.
    std::size_t missing_bytes_ = 0;
    std::size_t searched_ = 0;    // The head's end does not begin before this.
    std::size_t head_bytes_ = 0;  // With the empty line, once `state_` has left kHead.
    ChunkScanner chunks_;
    State state_ = State::kHead;
    bool whole_ = false;
};

/// Reads a request: the request line is split at its first two blanks, the target at its first
/// "?"; nothing is decoded.  What is missing is empty, and a last line without its end is the
/// request line or nothing.  The body is all that follows the head.
[[nodiscard]] HttpRequest parse_request(std::string_view received);

/// The value of the first header of that name, empty when there is none.
[[nodiscard]] std::string_view find_header(const std::vector<HttpHeader>& headers,
                                           std::string_view name);

/// True when an element of the comma-separated `value`, its parameters (from the first ";" on)
/// and the blanks and tabs around it left out, equals `token` without regard to ASCII case.
[[nodiscard]] bool header_has_token(std::string_view value, std::string_view token);

}  // namespace quorvane
