#include "http/message.h"

#include <algorithm>
#include <utility>

#include "support/text.h"

namespace quorvane {
namespace {

bool has_header(const std::vector<HttpHeader>& headers, std::string_view name) {
    return std::ranges::any_of(headers, [name](const HttpHeader& header) {
        return equal_ignoring_case(header.name, name);
    });
}

void append_line(std::string& head, std::string_view name, std::string_view value) {
    head.append(name).append(": ").append(value).append("\r\n");
}

void append_headers(std::string& head, const std::vector<HttpHeader>& headers) {
    for (const HttpHeader& header : headers) append_line(head, header.name, header.value);
}

// The two headers that requests and responses share.
void append_closing_headers(std::string& head, const std::vector<HttpHeader>& headers,
                            std::size_t body_size) {
    if (!has_header(headers, "Content-Length")) {
        append_line(head, "Content-Length", std::to_string(body_size));
    }
    if (!has_header(headers, "Connection")) append_line(head, "Connection", "close");
}

ByteBuffer join_message(std::string_view head, std::string_view body) {
    constexpr std::string_view kEmptyLine = "\r\n";
    ByteBuffer message;
    static_cast<void>(message.spare(head.size() + kEmptyLine.size() + body.size()));
    message.append(head);
    message.append(kEmptyLine);
    message.append(body);
    return message;
}

}  // namespace

HttpRequest make_request(std::string method, std::string path, ByteBuffer body,
                         std::vector<HttpHeader> headers) {
    return {std::move(method), std::move(path), {}, std::move(headers), std::move(body)};
}

HttpRequest make_post(std::string path, ByteBuffer body, std::vector<HttpHeader> headers) {
    return make_request("POST", std::move(path), std::move(body), std::move(headers));
}

HttpResponse make_text_response(std::string_view body, std::int64_t status) {
    return {.status = status,
            .headers = {{"Content-Type", "text/plain; charset=utf-8"}},
            .body = ByteBuffer::copy_of(body)};
}

ByteBuffer serialize_request(const HttpRequest& request, std::string_view host_header) {
    std::string head;
    head.append(request.method).append(" ").append(request.path);
    if (!request.query.empty()) head.append("?").append(request.query);
    head.append(" HTTP/1.1\r\n");
    append_headers(head, request.headers);
    if (!has_header(request.headers, "Host")) append_line(head, "Host", host_header);
    append_closing_headers(head, request.headers, request.body.size());
    return join_message(head, request.body.view());
}

std::string serialize_response_head(const HttpResponse& response) {
    std::string head = "HTTP/1.1 " + std::to_string(response.status) + " ";
    head.append(reason_phrase(response.status)).append("\r\n");
    append_headers(head, response.headers);
    // RFC 9110 15.2.2: after a 101 the connection continues in another protocol.
    if (response.status != 101) {
        append_closing_headers(head, response.headers, response.body.size());
    }
    return head;
}

ByteBuffer serialize_response(const HttpResponse& response) {
    return join_message(serialize_response_head(response), response.body.view());
}

std::string_view reason_phrase(std::int64_t status) {
    static constexpr std::pair<int, std::string_view> kPhrases[] = {
        {101, "Switching Protocols"},
        {200, "OK"},
        {201, "Created"},
        {204, "No Content"},
        {302, "Found"},
        {303, "See Other"},
        {400, "Bad Request"},
        {401, "Unauthorized"},
        {403, "Forbidden"},
        {404, "Not Found"},
        {405, "Method Not Allowed"},
        {409, "Conflict"},
        {413, "Payload Too Large"},
        {415, "Unsupported Media Type"},
        {422, "Unprocessable Content"},
        {426, "Upgrade Required"},
        {429, "Too Many Requests"},
        {500, "Internal Server Error"},
        {501, "Not Implemented"},
        {502, "Bad Gateway"},
        {503, "Service Unavailable"},
        {504, "Gateway Timeout"},
    };
    for (const auto& [code, phrase] : kPhrases) {
        if (code == status) return phrase;
    }
    return "Unknown Status";
}

}  // namespace quorvane
