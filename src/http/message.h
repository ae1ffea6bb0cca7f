#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "support/bytes.h"

/// HTTP/1.1 messages (RFC 9112) as records and as bytes.
///
/// Writing cannot fail and checks nothing: names, values, paths and queries go out byte for byte.
/// They are texts of the program's own, and the token as the credential file has it.  Header names
/// are compared without regard to ASCII case.
namespace quorvane {

struct HttpHeader {
    std::string name;
    std::string value;
};

struct HttpRequest {
    std::string method;
    std::string path;   ///< Percent-encoded where it has to be.
    std::string query;  ///< Without the "?"; empty when there is none.
    std::vector<HttpHeader> headers;
    ByteBuffer body;
};

struct HttpResponse {
    std::int64_t status = 0;
    std::vector<HttpHeader> headers;
    ByteBuffer body;
};

/// A request with an empty query.
[[nodiscard]] HttpRequest make_request(std::string method, std::string path, ByteBuffer body = {},
                                       std::vector<HttpHeader> headers = {});

/// `make_request` with the method "POST".
[[nodiscard]] HttpRequest make_post(std::string path, ByteBuffer body,
                                    std::vector<HttpHeader> headers = {});

/// A response whose only header is "Content-Type: text/plain; charset=utf-8".
[[nodiscard]] HttpResponse make_text_response(std::string_view body, std::int64_t status = 200);

/// The complete message: the request's own headers in order, then Host (with the value
/// `host_header`), Content-Length and Connection ("close") where it has none, then the body.
[[nodiscard]] ByteBuffer serialize_request(const HttpRequest& request,
                                           std::string_view host_header);

/// The status line and the header lines, without the empty line that ends the head.  Content-Length
/// and Connection ("close") are added where they are missing, except to a 101.
[[nodiscard]] std::string serialize_response_head(const HttpResponse& response);

/// The head, the empty line and the body.
[[nodiscard]] ByteBuffer serialize_response(const HttpResponse& response);

/// The reason phrase of the statuses that a small server uses, "Unknown Status" for all others.
[[nodiscard]] std::string_view reason_phrase(std::int64_t status);

}  // namespace quorvane
