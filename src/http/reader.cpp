#include "http/reader.h"

#include <algorithm>
#include <string>
#include <utility>

#include "support/text.h"

namespace quorvane {
namespace {

constexpr std::string_view kLineEnd = "\r\n";

struct HeaderLine {
    std::string_view name;
    std::string_view value;
};

/// Walks over the lines of a head.  What `rest` holds when `next_header` has answered false is the
/// body if the head `ended`, else a line that has not arrived whole.
struct HeadWalk {
    std::string_view first_line;
    std::string_view rest;
    bool ended = false;
};

HeadWalk begin_head(std::string_view message) {
    const std::size_t end = message.find(kLineEnd);
    if (end == std::string_view::npos) return {message, {}, false};
    return {message.substr(0, end), message.substr(end + kLineEnd.size()), false};
}

bool next_header(HeadWalk& walk, HeaderLine& header) {
    for (;;) {
        const std::size_t end = walk.rest.find(kLineEnd);
        if (end == std::string_view::npos) return false;
        const std::string_view line = walk.rest.substr(0, end);
        walk.rest.remove_prefix(end + kLineEnd.size());
        if (line.empty()) {
            walk.ended = true;
            return false;
        }
        const TextSplit split = split_once(line, ':');
        if (!split.found) continue;
        const std::size_t begin = std::min(split.after.find_first_not_of(' '), split.after.size());
        header = {split.before, split.after.substr(begin)};
        return true;
    }
}

std::vector<HttpHeader> collect_headers(HeadWalk& walk) {
    std::vector<HttpHeader> headers;
    for (HeaderLine header; next_header(walk, header);) {
        headers.push_back({std::string(header.name), std::string(header.value)});
    }
    return headers;
}

/// -1 when the line holds no status of at most three significant digits between two blanks.
std::int64_t read_status(std::string_view line) {
    const TextSplit protocol = split_once(line, ' ');
    const TextSplit code = split_once(protocol.after, ' ');
    if (protocol.before.empty() || !code.found) return -1;
    return parse_decimal(code.before, 999);
}

bool usable_status(std::int64_t status) { return status >= 100; }

enum class Framing : std::uint8_t { kChunked, kLength, kUntilClose, kMalformed };

struct BodyFraming {
    Framing kind = Framing::kUntilClose;
    std::int64_t length = 0;  ///< Under kLength.
};

/// RFC 9112 6.3: chunks win over a length.  Both values are those of the first header of the name.
BodyFraming judge_framing(std::string_view transfer_encoding, std::string_view content_length,
                          std::int64_t body_limit) {
    if (header_has_token(transfer_encoding, "chunked")) return {Framing::kChunked, 0};
    if (content_length.empty()) return {Framing::kUntilClose, 0};
    const std::int64_t length = parse_decimal(content_length, body_limit);
    if (length < 0) return {Framing::kMalformed, 0};
    return {Framing::kLength, length};
}

bool has_bytes(std::string_view body, std::int64_t length) {
    return static_cast<std::int64_t>(body.size()) >= length;
}

std::string_view trim_blanks(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

}  // namespace

ResponseParse parse_response(ByteBuffer received, std::int64_t body_limit) {
    ResponseParse parse;
    HeadWalk walk = begin_head(received.view());
    const std::int64_t status = read_status(walk.first_line);
    if (!usable_status(status)) return parse;
    parse.ok = true;
    parse.response.status = status;
    parse.response.headers = collect_headers(walk);
    if (!walk.ended) return parse;

    const std::vector<HttpHeader>& headers = parse.response.headers;
    const BodyFraming framing = judge_framing(find_header(headers, "Transfer-Encoding"),
                                              find_header(headers, "Content-Length"), body_limit);
    received.drop_front(received.size() - walk.rest.size());
    if (framing.kind == Framing::kChunked) {
        parse.complete = decode_chunked_in_place(received, body_limit);
    } else if (framing.kind == Framing::kLength) {
        parse.complete = has_bytes(received.view(), framing.length);
        received.truncate(static_cast<std::size_t>(framing.length));
    }
    parse.response.body = std::move(received);
    return parse;
}

void ResponseFraming::read_head(std::string_view head) {
    HeadWalk walk = begin_head(head);
    std::string_view transfer_encoding;
    std::string_view content_length;
    bool seen_encoding = false;
    bool seen_length = false;
    for (HeaderLine header; next_header(walk, header);) {
        if (!seen_encoding && equal_ignoring_case(header.name, "Transfer-Encoding")) {
            transfer_encoding = header.value;
            seen_encoding = true;
        } else if (!seen_length && equal_ignoring_case(header.name, "Content-Length")) {
            content_length = header.value;
            seen_length = true;
        }
    }
    const BodyFraming framing = judge_framing(transfer_encoding, content_length, body_limit_);
    state_ = State::kEndless;
    if (!usable_status(read_status(walk.first_line))) return;
    if (framing.kind == Framing::kChunked) state_ = State::kChunked;
    if (framing.kind == Framing::kLength) state_ = State::kLength;
    body_bytes_ = framing.length;
}

void ResponseFraming::read_chunks(std::string_view body) {
    ChunkStep step = chunks_.next(body);
    while (step == ChunkStep::kChunk) step = chunks_.next(body);
    whole_ = step == ChunkStep::kEnd;
    body_bytes_ = chunks_.decoded_bytes();
}

void ResponseFraming::advance(std::string_view received) {
    constexpr std::string_view kHeadEnd = "\r\n\r\n";
    if (state_ == State::kHead) {
        const std::size_t end = received.find(kHeadEnd, searched_);
        if (end == std::string_view::npos) {
            // The last three bytes may be the beginning of the head's end.
            searched_ = received.size() - std::min(received.size(), kHeadEnd.size() - 1);
            return;
        }
        head_bytes_ = end + kHeadEnd.size();
        read_head(received.substr(0, head_bytes_));
    }
    const std::string_view body = received.substr(head_bytes_);
    if (state_ == State::kChunked) read_chunks(body);
    if (state_ == State::kLength) {
        whole_ = has_bytes(body, body_bytes_);
        missing_bytes_ = whole_ ? 0 : static_cast<std::size_t>(body_bytes_) - body.size();
    }
}

HttpRequest parse_request(std::string_view received) {
    HeadWalk walk = begin_head(received);
    const TextSplit method = split_once(walk.first_line, ' ');
    const TextSplit target = split_once(split_once(method.after, ' ').before, '?');
    HttpRequest request;
    request.method = method.before;
    request.path = target.before;
    request.query = target.after;
    request.headers = collect_headers(walk);
    if (walk.ended) request.body.append(walk.rest);
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
        const std::string_view element = trim_blanks(split_once(part, ';').before);
        if (equal_ignoring_case(element, token)) return true;
    }
    return false;
}

}  // namespace quorvane
