#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "http/message.h"
#include "http/reader.h"
#include "support/bytes.h"

/// One request and its response over one fresh connection: no reuse, redirects or retries.
namespace quorvane {

/// What an exchange is aimed at.
struct HttpTarget {
    std::string host_header;  ///< The value of the Host header.
    std::string host;         ///< What to connect to: a name or an address literal.
    std::int64_t max_response_bytes = kDefaultBodyLimit;  ///< Read at most; also the body's limit.
    std::int64_t timeout_ms = 5'000;                      ///< Bounds every single wait.
};

struct TransportResult {
    /// The connection was made, the request was sent in full, and reading did not end too early:
    /// at a time limit before the response was complete, or at an error before its head was.
    bool ok = false;
    ByteBuffer bytes;  ///< All that was received, at most the maximum.
};

/// How bytes travel.  The port and whatever else is fixed for an origin belong to the value.
class HttpTransport {
  public:
    HttpTransport() = default;
    HttpTransport(const HttpTransport&) = delete;
    HttpTransport& operator=(const HttpTransport&) = delete;
    virtual ~HttpTransport() = default;

    /// Connects to `host`, sends `request` and reads the response, at most `max_bytes` of it.
    /// Every wait is bounded by `timeout_ms`; the connection is closed in every case.
    ///
    /// The end of the stream and the maximum only end the reading; the reader then judges what
    /// arrived.  A receive error after the complete head is such an end, too: a service that
    /// refuses a request and closes over its unread bytes makes the kernel send a reset, and its
    /// answer still counts.  An error before that clears `ok`, and so does a wait that runs out,
    /// unless the response is complete by its own framing (under a body limit of `max_bytes`).
    [[nodiscard]] virtual TransportResult round_trip(std::string_view host,
                                                     std::string_view request,
                                                     std::int64_t max_bytes,
                                                     std::int64_t timeout_ms) = 0;
};

struct ExchangeResult {
    HttpResponse response;  ///< Empty (status 0) when nothing usable arrived.
    bool ok = false;        ///< The transport's flag.
    bool complete = false;  ///< The reader's flag: the body arrived whole, as its headers frame it.
};

[[nodiscard]] ExchangeResult exchange(const HttpTarget& target, const HttpRequest& request,
                                      HttpTransport& transport);

}  // namespace quorvane
