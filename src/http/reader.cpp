#include "http/reader.h"

#include <algorithm>
#include <string>
#include <utility>

#include "support/text.h"

namespace quorvane {
namespace {

// Takes the first line off `rest`; nothing while its end has not arrived.
std::optional<std::string_view> take_line(std::string_view& rest) {
    constexpr std::string_view kLineEnd = "\r\n";
    const std::size_t end = rest.find(kLineEnd);
    if (end == std::string_view::npos) return std::nullopt;
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end + kLineEnd.size());
    return line;
}

// A message as far as it has arrived, without a header line whose end is missing.
struct MessageHead {
    std::string_view first_line;
    std::vector<HttpHeader> headers;
    bool complete = false;  // The empty line that ends a head was there.
    std::string_view body;  // What follows a complete head.
};

MessageHead collect_headers(std::string_view message) {
    MessageHead head;
    head.first_line = take_line(message).value_or(message);
    while (const std::optional<std::string_view> line = take_line(message)) {
        if (line->empty()) {
            head.complete = true;
            head.body = message;
            break;
        }
        const TextSplit header = split_once(*line, ':');
        if (!header.found) continue;
        std::string_view value = header.after;
        value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
        head.headers.push_back({std::string(header.before), std::string(value)});
    }
    return head;
}

// The status between the first two spaces of the line, if it is 100 to 999.
std::optional<std::int64_t> read_status(std::string_view line) {
    const TextSplit protocol = split_once(line, ' ');
    const TextSplit code = split_once(protocol.after, ' ');
    if (protocol.before.empty() || !code.found) return std::nullopt;
    const std::int64_t status = parse_decimal(code.before, 999);
    if (status < 100) return std::nullopt;
    return status;
}

// RFC 9112 6.3: chunks win over a length, and the first header of either name counts.
BodyFraming judge_framing(const std::vector<HttpHeader>& headers, std::int64_t max_body_bytes) {
    if (header_has_token(find_header(headers, "Transfer-Encoding"), "chunked")) {
        return {.chunked = true, .length = std::nullopt};
    }
    const std::int64_t length =
        parse_decimal(find_header(headers, "Content-Length"), max_body_bytes);
    if (length < 0) return {};
    return {.length = length};
}

std::string_view trim_spaces_and_tabs(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

}  // namespace

ResponseParse parse_response(ByteBuffer received, std::int64_t max_body_bytes) {
    ResponseParse parse;
    MessageHead head = collect_headers(received.view());
    const std::optional<std::int64_t> status = read_status(head.first_line);
    if (!status) return parse;
    parse.ok = true;
    parse.response.status = *status;
    parse.response.headers = std::move(head.headers);
    if (!head.complete) return parse;

    const BodyFraming framing = judge_framing(parse.response.headers, max_body_bytes);
    received.drop_front(received.size() - head.body.size());
    if (framing.chunked) {
        ChunkedDecode decode = decode_chunked(std::move(received), max_body_bytes);
        parse.complete = decode.complete;
        received = std::move(decode.body);
    } else if (framing.length) {
        const auto length = static_cast<std::size_t>(*framing.length);
        parse.complete = received.size() >= length;
        received.truncate(length);
    }
    parse.response.body = std::move(received);
    return parse;
}

void ResponseFraming::advance(std::string_view received) {
    if (!head_bytes) {
        head_bytes = head_size(received, searched_);
        searched_ = received.size();
        if (!head_bytes) return;
        const MessageHead head = collect_headers(received);
        if (read_status(head.first_line)) framing_ = judge_framing(head.headers, max_body_bytes);
    }
    const std::string_view body = received.substr(*head_bytes);
    if (framing_.chunked) {
        ChunkStep step = ChunkStep::kChunk;
        while (step == ChunkStep::kChunk) step = chunks_.next(body);
        complete = step == ChunkStep::kEnd;
        body_bytes = chunks_.decoded_bytes;
    } else if (framing_.length) {
        body_bytes = *framing_.length;
        missing_bytes =
            static_cast<std::size_t>(std::max<std::int64_t>(body_bytes - std::ssize(body), 0));
        complete = missing_bytes == 0;
    }
}

std::optional<std::size_t> head_size(std::string_view received, std::size_t searched) {
    constexpr std::string_view kHeadEnd = "\r\n\r\n";
    // The end may have begun in the last three bytes that were searched.
    const std::size_t from = searched - std::min(searched, kHeadEnd.size() - 1);
    const std::size_t at = received.find(kHeadEnd, from);
    if (at == std::string_view::npos) return std::nullopt;
    return at + kHeadEnd.size();
}

HttpRequest parse_request(std::string_view received) {
    MessageHead head = collect_headers(received);
    const TextSplit method = split_once(head.first_line, ' ');
    const TextSplit target = split_once(split_once(method.after, ' ').before, '?');
    HttpRequest request;
    request.method = method.before;
    request.path = target.before;
    request.query = target.after;
    request.headers = std::move(head.headers);
    request.body.append(head.body);
    return request;
}

std::string_view find_header(const std::vector<HttpHeader>& headers, std::string_view name) {
    for (const HttpHeader& header : headers) {
        if (equal_ignoring_case(header.name, name)) return header.value;
    }
    return {};
}

bool header_has_token(std::string_view value, std::string_view token) {
    for (const std::string_view part : split(value, ',')) {
        const std::string_view element = trim_spaces_and_tabs(split_once(part, ';').before);
        if (equal_ignoring_case(element, token)) return true;
    }
    return false;
}

}  // namespace quorvane
