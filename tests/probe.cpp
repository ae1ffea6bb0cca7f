// Runs one operation of the network layers and shows its result.
//
//   probe plain|tls HOST PORT TIMEOUT_MS MAX_BYTES [BODY_BYTES [TRUST_FILE]]
//   probe trust
//   probe resolve HOST TIMEOUT_MS [SERVER]
//   probe connect HOST PORT TIMEOUT_MS
//
// Or answers questions about single pieces of the program, one a line on standard input, for
// scripts/compare to hold against what others say; bytes are in hex.
//
//   probe answer
//     json BYTES               the document without blanks, or "refused"
//     sha256 BYTES             the digest
//     base64url BYTES          the text
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "dns/connect_host.h"
#include "dns/resolver.h"
#include "http/exchange.h"
#include "http/tls.h"
#include "json/parser.h"
#include "json/writer.h"
#include "session/encoding.h"
#include "session/sha256.h"
#include "session/trust_store.h"
#include "support/process.h"
#include "support/syscall.h"

namespace quorvane {
namespace {

void run_exchange(const std::vector<std::string>& words) {
    const HttpTarget target = {.host_header = words[1],
                               .host = words[1],
                               .max_response_bytes = std::stoll(words[4]),
                               .timeout_ms = std::stoll(words[3])};
    ByteBuffer body;
    if (words.size() > 5) body.append(std::string(std::stoul(words[5]), 'b'));
    const HttpRequest request = make_post("/file", std::move(body));
    PlainTransport plain(std::stoi(words[2]));
    TlsTransport tls(std::stoi(words[2]), words.size() > 6 ? words[6] : choose_trust_store());
    HttpTransport& transport = words[0] == "tls" ? static_cast<HttpTransport&>(tls) : plain;
    // It fails, and a later success must clear its message.
    if (words[0] == "tls") static_cast<void>(tls_connect({}));
    const ExchangeResult got = exchange(target, request, transport);
    std::cout << "ok=" << got.ok << " status=" << got.response.status
              << " complete=" << got.complete << " error=" << last_tls_error() << '\n'
              << got.response.body.view();
}

std::string answer(const std::string& what, const std::string& digits) {
    std::string bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    const auto as_bytes = [](std::string_view text) {
        return std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    };
    if (what == "sha256") return hex_lower(sha256(bytes));
    if (what == "base64url") return base64url(as_bytes(bytes));
    const JsonParseResult parsed = parse_json(bytes, kApplicationJsonLimits);
    return parsed.ok ? hex_lower(as_bytes(write_json(parsed.value).view())) : "refused";
}

void run(const std::vector<std::string>& words) {
    if (words[0] == "resolve") {
        const std::string server = words.size() > 3 ? words[3] : "";
        const ResolveResult got = resolve_host(words[1], std::stoll(words[2]), server);
        std::cout << "ok=" << got.ok << " timed_out=" << got.timed_out << " error=" << got.error;
        for (const std::string& address : got.addresses) std::cout << ' ' << address;
    } else if (words[0] == "connect") {
        const auto got = connect_host(words[1], std::stoi(words[2]), std::stoll(words[3]));
        std::cout << "ok=" << got.ok << " error=" << got.error;
    } else if (words[0] == "trust") {
        // The file that TLS names to OpenSSL, and what OpenSSL finds in the environment.
        std::cout << "file=" << choose_trust_store();
        for (const char* name : {"SSL_CERT_FILE", "SSL_CERT_DIR"}) {
            const char* const value = std::getenv(name);
            std::cout << ' ' << name << '=' << (value == nullptr ? "unset" : value);
        }
    } else if (words[0] == "answer") {
        for (std::string line; std::getline(std::cin, line);) {
            const std::size_t blank = line.find(' ');
            std::cout << answer(line.substr(0, blank), line.substr(blank + 1)) << '\n';
        }
    } else {
        run_exchange(words);
    }
}

}  // namespace
}  // namespace quorvane

int main(int count, char** arguments) {
    quorvane::set_process_vectors(count, arguments);
    quorvane::kernel::set_signal(SIGPIPE, SIG_IGN);
    quorvane::run({arguments + 1, arguments + count});
    return 0;
}
