#include "session/login.h"

#include <poll.h>

#include <optional>
#include <string>
#include <utility>

#include "http/message.h"
#include "http/reader.h"
#include "json/value.h"
#include "net/address.h"
#include "net/socket.h"
#include "session/api_client.h"
#include "session/browser.h"
#include "session/callback.h"
#include "session/encoding.h"
#include "session/state_files.h"
#include "support/bytes.h"
#include "support/clock.h"
#include "support/output.h"
#include "support/text.h"

namespace quorvane {
namespace {

constexpr std::int64_t kLoginTimeoutMs = 300'000;
constexpr std::int64_t kConnectionTimeoutMs = 5'000;
constexpr std::int64_t kWaitTimeoutMs = 1'000;
constexpr std::int64_t kRetryPauseMs = 50;
constexpr std::size_t kMaxHeadBytes = 8'192;

struct LoginListener {
    FdHandle fd;
    std::int32_t port = 0;
};

// The browser's connection, which stays open until the response to it is known.
struct Callback {
    FdHandle connection;
    std::string code;
};

std::optional<LoginListener> open_login_listener() {
    ConnectResult opened = open_listener(kLoopbackIpv4, 0);
    if (!opened.ok || !set_non_blocking(opened.fd.get())) return std::nullopt;
    const std::optional<std::int32_t> port = listener_port(opened.fd.get());
    if (!port) return std::nullopt;
    return LoginListener{std::move(opened.fd), *port};
}

std::optional<JsonValue> start_login(const ServiceOrigin& origin, std::string_view verifier,
                                     std::string_view state, std::int32_t port) {
    const JsonValue body = json_object(
        {"challenge", "state", "port"},
        json_values(json_string(pkce_challenge(verifier)), json_string(state), json_integer(port)));
    return call_service(origin, "/api/cli/start", body);
}

std::optional<JsonValue> exchange_code(const ServiceOrigin& origin,
                                       std::string_view request_identifier, std::string_view code,
                                       std::string_view verifier) {
    const JsonValue body = json_object(
        {"request", "code", "verifier"},
        json_values(json_string(request_identifier), json_string(code), json_string(verifier)));
    return call_service(origin, "/api/cli/exchange", body);
}

// Reads one head of at most kMaxHeadBytes.  A wait in which nothing arrives ends the reading, so
// that the silent extra connection that browsers open costs one second.
ByteBuffer read_request_head(int fd) {
    const std::int64_t deadline_ms = monotonic_ms() + kConnectionTimeoutMs;
    ByteBuffer head;
    while (head.size() < kMaxHeadBytes && monotonic_ms() < deadline_ms) {
        const std::size_t seen_bytes = head.size();
        const auto allowed_bytes = static_cast<std::int64_t>(kMaxHeadBytes - seen_bytes);
        if (receive_some(fd, head, allowed_bytes, kWaitTimeoutMs).received_bytes == 0) break;
        if (head_size(head.view(), seen_bytes)) break;
    }
    return head;
}

void respond(FdHandle connection, const HttpResponse& response) {
    const ByteBuffer bytes = serialize_response(response);
    static_cast<void>(send_all(connection.get(), bytes.view()));
    finish_connection(std::move(connection));
}

HttpResponse connected_response() {
    HttpResponse response = make_text_response("Quorvane CLI connected. You can close this tab.");
    response.headers.push_back({"Cache-Control", "no-store"});
    response.headers.push_back({"Referrer-Policy", "no-referrer"});
    return response;
}

// Refuses every request but the expected one, until that one comes or the time is over.
std::optional<Callback> wait_for_callback(int listener, std::string_view state,
                                          std::string_view request_identifier) {
    const std::int64_t deadline_ms = monotonic_ms() + kLoginTimeoutMs;
    // Waits are counted too, because a clock that cannot be read stays at 0.
    std::int64_t waits_left = kLoginTimeoutMs / kWaitTimeoutMs;
    while (monotonic_ms() < deadline_ms && waits_left > 0) {
        if (wait_ready(listener, POLLIN, kWaitTimeoutMs) <= 0) {
            --waits_left;
            continue;
        }
        std::optional<FdHandle> connection = accept_connection(listener);
        if (!connection) {
            // Without a free descriptor, for instance, the connection stays ready: asking again at
            // once would use the processor for nothing.
            pause_ms(kRetryPauseMs);
            continue;
        }
        const ByteBuffer head = read_request_head(connection->get());
        std::optional<std::string> code = judge_callback(head.view(), state, request_identifier);
        if (code) return Callback{std::move(*connection), std::move(*code)};
        respond(std::move(*connection), make_text_response("Unknown login callback", 400));
    }
    return std::nullopt;
}

}  // namespace

int run_login(const ServiceOrigin& origin, bool open_browser, unsigned user_umask) {
    const std::string verifier = random_token();
    const std::string state = random_token();
    if (verifier.empty() || state.empty()) return fail("Secure randomness unavailable");

    const std::optional<LoginListener> listener = open_login_listener();
    if (!listener) return fail("Cannot open a loopback login listener");

    const std::optional<JsonValue> started = start_login(origin, verifier, state, listener->port);
    if (!started) return 1;
    const std::string request_identifier(json_get_string(*started, "request"));
    const std::string url = concat({origin.text, "/cli/authorize?request=", request_identifier});
    print_line(Stream::kOutput, "Open this URL to authorize the CLI:\n" + url);
    if (open_browser) launch_browser({"xdg-open", url}, user_umask);

    std::optional<Callback> callback =
        wait_for_callback(listener->fd.get(), state, request_identifier);
    if (!callback) return fail("Login timed out. Run quorvane login again.");

    const std::optional<JsonValue> credentials =
        exchange_code(origin, request_identifier, callback->code, verifier);
    if (!credentials) {
        respond(std::move(callback->connection),
                make_text_response("Authorization failed. Return to your terminal.", 400));
        return 1;
    }
    if (!save_credentials(origin, *credentials)) {
        respond(std::move(callback->connection),
                make_text_response("Unable to save credentials.", 500));
        return fail("Unable to save credentials");
    }
    respond(std::move(callback->connection), connected_response());
    print_line(Stream::kOutput, concat({"Signed in as ", json_get_string(*credentials, "email")}));
    return 0;
}

}  // namespace quorvane
