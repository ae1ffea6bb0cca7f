#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "http/chunked.h"
#include "support/bytes.h"

/// The two ways in which the bytes of an exchange travel.
namespace quorvane {

/// Where a request is sent, and how much and how long the peer may take.
struct HttpTarget {
    std::string host_header;  ///< The value of the Host header.
    std::string host;         ///< The name or address literal to connect to.
    std::int64_t max_response_bytes = kDefaultMaxBodyBytes;  ///< Of the message and of its body.
    std::int64_t timeout_ms = 5'000;                         ///< Bounds every single wait.
};

struct TransportResult {
    /// The connection was made, the request was sent in full, and reading did not end too early:
    /// at a time limit before the response was complete, or at an error before its head was.
    bool ok = false;
    ByteBuffer bytes = {};  ///< All that was received, at most the maximum.
};

/// The port and everything else that is fixed for an origin belong to the transport.
class HttpTransport {
  public:
    virtual ~HttpTransport() = default;

    /// Connects, sends `request` and reads the response, within the target's limits.  The
    /// connection is closed in every case.
    ///
    /// A request that cannot be sent in full clears `ok`, and nothing is read.  The end of the
    /// stream and the maximum only end the reading; the reader then judges what arrived.  A receive
    /// error after the complete head is such an end, too: a service that refuses a request and
    /// closes over its unread bytes makes the kernel send a reset, and its response counts unless
    /// the reset came while sending.  An error before that clears `ok`, and so does a wait that
    /// runs out, unless the response is complete by its own framing (with a body of up to
    /// `max_response_bytes`).
    [[nodiscard]] virtual TransportResult round_trip(const HttpTarget& target,
                                                     std::string_view request) = 0;
};

/// TCP without TLS.  The host must be an IPv4 literal, for no name is ever looked up; the response
/// is read until the peer closes.
class PlainTransport final : public HttpTransport {
  public:
    explicit PlainTransport(std::int32_t port) : port_(port) {}

    [[nodiscard]] TransportResult round_trip(const HttpTarget& target,
                                             std::string_view request) override;

  private:
    std::int32_t port_;
};

/// TLS over TCP, to a name or a literal.  Reading ends as soon as a response of up to
/// kDefaultMaxBodyBytes body bytes is complete; a longer one is read until the peer closes.  When
/// no connection was made, `last_tls_error` says why.
class TlsTransport final : public HttpTransport {
  public:
    /// `trust_store_file` as in TlsSettings.
    explicit TlsTransport(std::int32_t port, std::string trust_store_file = {})
        : port_(port), trust_store_file_(std::move(trust_store_file)) {}

    [[nodiscard]] TransportResult round_trip(const HttpTarget& target,
                                             std::string_view request) override;

  private:
    std::int32_t port_;
    std::string trust_store_file_;
};

}  // namespace quorvane
