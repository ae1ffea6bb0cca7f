#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "http/exchange.h"

namespace quorvane {

/// TLS over TCP, to a name or a literal.  Reading ends as soon as a response of up to
/// kDefaultBodyLimit body bytes is whole; a longer one is read until the peer closes.  What failed
/// before the request was on its way is in `last_tls_error`.
class TlsTransport final : public HttpTransport {
  public:
    /// `trust_store_file` as in TlsSettings.
    explicit TlsTransport(std::int32_t port, std::string trust_store_file = {})
        : port_(port), trust_store_file_(std::move(trust_store_file)) {}

    [[nodiscard]] TransportResult round_trip(std::string_view host, std::string_view request,
                                             std::int64_t max_bytes,
                                             std::int64_t timeout_ms) override;

  private:
    std::int32_t port_;
    std::string trust_store_file_;
};

}  // namespace quorvane
