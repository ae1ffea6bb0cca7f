#include "session/callback.h"

#include "http/message.h"
#include "http/reader.h"
#include "support/text.h"

namespace quorvane {
namespace {

// The raw value of the first query parameter `name`: the text from "name=", at the start of the
// query or after a "&", to the next "&" or the end.  Nothing is percent-decoded; a missing
// parameter reads as the empty text.
std::string_view query_parameter(std::string_view query, std::string_view name) {
    for (const std::string_view parameter : split(query, '&')) {
        const TextSplit value = split_once(parameter, '=');
        if (value.found && value.before == name) return value.after;
    }
    return {};
}

}  // namespace

std::optional<std::string> judge_callback(std::string_view bytes, std::string_view state,
                                          std::string_view request_identifier) {
    if (!head_size(bytes)) return std::nullopt;
    const HttpRequest request = parse_request(bytes);
    if (request.method != "GET" || request.path != "/callback") return std::nullopt;
    const std::string_view given_state = query_parameter(request.query, "state");
    if (given_state.empty() || given_state != state) return std::nullopt;
    if (query_parameter(request.query, "request") != request_identifier) return std::nullopt;
    return std::string(query_parameter(request.query, "code"));
}

}  // namespace quorvane
