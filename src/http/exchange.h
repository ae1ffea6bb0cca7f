#pragma once

#include <cstdint>
#include <string>

#include "http/message.h"
#include "http/reader.h"
#include "http/transport.h"

/// One request and its response over one fresh connection: no reuse, redirects or retries.
namespace quorvane {

struct HttpTarget {
    std::string host_header;  ///< The value of the Host header.
    std::string host;         ///< The name or address literal to connect to.
    std::int64_t max_response_bytes = kDefaultMaxBodyBytes;  ///< Of the message and of its body.
    std::int64_t timeout_ms = 5'000;                         ///< Bounds every single wait.
};

struct ExchangeResult {
    HttpResponse response;  ///< Empty (status 0) when nothing usable arrived.
    bool ok = false;        ///< The transport's flag.
    bool complete =
        false;  ///< The reader's flag: all of the body arrived, as the headers frame it.
};

[[nodiscard]] ExchangeResult exchange(const HttpTarget& target, const HttpRequest& request,
                                      HttpTransport& transport);

}  // namespace quorvane
