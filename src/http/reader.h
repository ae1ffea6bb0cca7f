#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "http/chunked.h"
#include "http/message.h"
#include "support/bytes.h"

/// Received bytes as HTTP/1.1 messages (RFC 9112); no I/O.
///
/// A line ends in CR LF and an empty line ends the head.  A header's value begins after the spaces
/// that follow its ":" and keeps everything else; a line without ":" is skipped.
namespace quorvane {

/// The result of `parse_response`.
struct ResponseParse {
    bool ok = false;        ///< The status line gave a status from 100 to 999.
    HttpResponse response;  ///< Empty (status 0) unless `ok`.
    bool complete = false;  ///< The head and all of the body, as the headers frame it, were there.
};

/// Reads a response.  The body is framed by chunks if Transfer-Encoding says so, else by
/// Content-Length if there is one, else by the end of the connection.
///
/// A response of the last kind is never `complete`, for only the connection's end would tell; nor
/// is one whose framing is malformed or whose body is longer than `max_body_bytes`.  The body of an
/// incomplete response is what arrived after the head; of a chunked one, the data of its complete
/// chunks.  The buffer becomes the body: its bytes are not copied elsewhere.
[[nodiscard]] ResponseParse parse_response(ByteBuffer received,
                                           std::int64_t max_body_bytes = kDefaultMaxBodyBytes);

/// How the headers of a response frame its body.
struct BodyFraming {
    bool chunked = false;
    std::optional<std::int64_t> length;  ///< As announced; none if chunked, missing or unusable.
};

/// Tells, while a response arrives, whether it is complete, that is, whether `parse_response` with
/// the same limit would say so.  One pass over the bytes, in whatever pieces they come.
struct ResponseFraming {
    explicit ResponseFraming(std::int64_t max_bytes)
        : max_body_bytes(max_bytes), chunks_(max_bytes) {}

    /// `received` is all that has arrived: the bytes of the last call and those after them.
    void advance(std::string_view received);

    std::int64_t max_body_bytes;
    std::optional<std::size_t> head_bytes;  ///< Once the head is complete.
    std::int64_t body_bytes = 0;            ///< The size of a complete message's body, decoded.
    std::size_t missing_bytes = 0;          ///< Of a body of announced length; 0 for any other.
    bool complete = false;

  private:
    std::size_t searched_ = 0;  // Where the last search for the head's end stopped.
    BodyFraming framing_;
    ChunkScanner chunks_;
};

/// The size of the head with the empty line that ends it, once that has arrived.  No head ends
/// within the first `searched` bytes.
[[nodiscard]] std::optional<std::size_t> head_size(std::string_view received,
                                                   std::size_t searched = 0);

/// Reads a request: the request line is split at its first two spaces, the target at its first
/// "?"; nothing is decoded.  Missing parts are empty.  A request line may lack its end, a header
/// line without one does not count.  The body is all that follows the head.
[[nodiscard]] HttpRequest parse_request(std::string_view received);

/// The value of the first header of that name, empty when there is none.
[[nodiscard]] std::string_view find_header(const std::vector<HttpHeader>& headers,
                                           std::string_view name);

/// True when an element of the comma-separated `value` equals `token` without regard to ASCII case.
/// An element's parameters (from the first ";" on) and the spaces and tabs around it do not count.
[[nodiscard]] bool header_has_token(std::string_view value, std::string_view token);

}  // namespace quorvane
