#pragma once

#include <cstdint>

#include "http/exchange.h"

namespace quorvane {

/// TCP without TLS.  The host must be an IPv4 literal, for no name is ever looked up; the response
/// is read until the peer closes.
class PlainTransport final : public HttpTransport {
  public:
    explicit PlainTransport(std::int32_t port) : port_(port) {}

    [[nodiscard]] TransportResult round_trip(std::string_view host, std::string_view request,
                                             std::int64_t max_bytes,
                                             std::int64_t timeout_ms) override;

  private:
    std::int32_t port_;
};

}  // namespace quorvane
