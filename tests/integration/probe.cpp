// Runs one operation of the network layers and shows its result.
//
//   probe plain|tls HOST PORT TIMEOUT_MS MAX_BYTES [BODY_BYTES [TRUST_FILE]]
//   probe resolve HOST TIMEOUT_MS [SERVER]
//   probe connect HOST PORT TIMEOUT_MS
#include <iostream>
#include <string>
#include <vector>

#include "dns/connect_host.h"
#include "dns/resolver.h"
#include "http/exchange.h"
#include "http/tls.h"
#include "support/syscall.h"

namespace quorvane {
namespace {

using Words = std::vector<std::string>;

void run_exchange(const Words& words) {
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
    std::cout << "ok=" << got.ok << " status=" << got.response.status
              << " complete=" << got.complete << " error=" << last_tls_error() << '\n'
              << got.response.body.view();
}

void run_resolve(const Words& words) {
    const ResolveResult got =
        resolve_host(words[1], std::stoll(words[2]), words.size() > 3 ? words[3] : "");
    std::cout << "ok=" << got.ok << " timed_out=" << got.timed_out << " error=" << got.error;
    for (const std::string& address : got.addresses) std::cout << ' ' << address;
    std::cout << '\n';
}

void run_connect(const Words& words) {
    const ConnectResult got = connect_host(words[1], std::stoi(words[2]), std::stoll(words[3]));
    std::cout << "ok=" << got.ok << " error=" << got.error << '\n';
}

}  // namespace
}  // namespace quorvane

int main(int count, char** arguments) {
    const quorvane::Words words(arguments + 1, arguments + count);
    quorvane::kernel::set_signal(SIGPIPE, SIG_IGN);
    if (words[0] == "resolve") {
        quorvane::run_resolve(words);
    } else if (words[0] == "connect") {
        quorvane::run_connect(words);
    } else {
        quorvane::run_exchange(words);
    }
    return 0;
}
