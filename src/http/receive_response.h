#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

#include "http/exchange.h"
#include "http/reader.h"
#include "net/socket.h"

namespace quorvane {

/// The reading half of `HttpTransport::round_trip`, which states when the result is `ok`.
///
/// `read(into, most)` is called while less than `max_bytes` have arrived; it appends at most `most`
/// bytes to `into` and returns a ReceiveResult.  A whole response ends the reading if its body has
/// at most `stop_body_bytes`; with -1 only the peer does.
template <typename Read>
[[nodiscard]] TransportResult receive_response(std::int64_t max_bytes, std::int64_t stop_body_bytes,
                                               const Read& read) {
    constexpr std::int64_t kReadBytes = 65'536;
    TransportResult result;
    result.ok = true;
    ResponseFraming framing(max_bytes);
    for (;;) {
        const std::int64_t allowed = max_bytes - static_cast<std::int64_t>(result.bytes.size());
        if (allowed <= 0) return result;
        const ReceiveResult got = read(result.bytes, std::min(allowed, kReadBytes));
        if (got.end_of_stream) return result;
        if (got.timed_out || got.error != 0) {
            result.ok = got.timed_out ? framing.complete() : framing.head_complete();
            return result;
        }
        framing.advance(result.bytes.view());
        // What was announced gets its room at once, and so does the read that meets the end.
        if (const std::size_t missing = framing.missing_bytes()) {
            static_cast<void>(result.bytes.spare(missing + static_cast<std::size_t>(kReadBytes)));
        }
        if (framing.complete() && framing.body_bytes() <= stop_body_bytes) return result;
    }
}

}  // namespace quorvane
