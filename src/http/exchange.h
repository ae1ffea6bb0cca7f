#pragma once

#include "http/message.h"
#include "http/transport.h"

/// One request and its response over one fresh connection: no reuse, redirects or retries.
namespace quorvane {

struct ExchangeResult {
    bool ok = false;        ///< That of the transport.
    HttpResponse response;  ///< Empty (status 0) when nothing usable arrived.
    bool complete = false;  ///< That of the reader: all of the body arrived.
};

[[nodiscard]] ExchangeResult exchange(const HttpTarget& target, const HttpRequest& request,
                                      HttpTransport& transport);

}  // namespace quorvane
