// Runs one operation of the network layers for the tests and shows what came of it.
//
//   probe plain|tls HOST PORT TIMEOUT_MS MAX_BYTES [BODY_BYTES [TRUST_FILE]]
//   probe resolve HOST TIMEOUT_MS [SERVER]
//   probe connect HOST PORT TIMEOUT_MS
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "dns/connect_host.h"
#include "dns/resolver.h"
#include "http/exchange.h"
#include "http/tls.h"
#include "support/syscall.h"

namespace quorvane {
namespace {

int run_exchange(const std::vector<std::string>& words) {
    const HttpTarget target = {.host_header = words[1],
                               .host = words[1],
                               .max_response_bytes = std::stoll(words[4]),
                               .timeout_ms = std::stoll(words[3])};
    ByteBuffer body;
    if (words.size() > 5) body.append(std::string(std::stoul(words[5]), 'b'));
    const HttpRequest request = make_post("/file", std::move(body));
    PlainTransport plain(std::stoi(words[2]));
    TlsTransport tls(std::stoi(words[2]), words.size() > 6 ? words[6] : "");
    HttpTransport& transport = words[0] == "tls" ? static_cast<HttpTransport&>(tls) : plain;
    // It fails, and a later success must clear its message.
    if (words[0] == "tls") static_cast<void>(tls_connect({}));
    const ExchangeResult got = exchange(target, request, transport);
    std::printf("ok=%d status=%lld complete=%d error=%s\n", got.ok,
                static_cast<long long>(got.response.status), got.complete,
                std::string(last_tls_error()).c_str());
    const std::string_view received = got.response.body.view();
    if (!received.empty()) std::fwrite(received.data(), 1, received.size(), stdout);
    return 0;
}

int run_resolve(const std::vector<std::string>& words) {
    const ResolveResult got =
        resolve_host(words[1], std::stoll(words[2]), words.size() > 3 ? words[3] : "");
    std::printf("ok=%d timed_out=%d error=%d", got.ok, got.timed_out, got.error);
    for (const std::string& address : got.addresses) std::printf(" %s", address.c_str());
    std::printf("\n");
    return 0;
}

int run_connect(const std::vector<std::string>& words) {
    const ConnectResult got = connect_host(words[1], std::stoi(words[2]), std::stoll(words[3]));
    std::printf("ok=%d error=%d\n", got.ok, got.error);
    return 0;
}

}  // namespace
}  // namespace quorvane

int main(int count, char** arguments) {
    const std::vector<std::string> words(arguments + 1, arguments + count);
    quorvane::kernel::set_signal(SIGPIPE, SIG_IGN);
    if (words.at(0) == "resolve") return quorvane::run_resolve(words);
    if (words.at(0) == "connect") return quorvane::run_connect(words);
    return quorvane::run_exchange(words);
}
