// Answers questions about single pieces of the program, for scripts/compare to hold against what
// other implementations say.  One question a line on standard input, one answer a line; bytes are
// written in hex.
//
//   json BYTES               the document without blanks, or "refused"
//   sha256 BYTES             the digest
//   base64url BYTES          the text
//   query NAME ID TYPE       the DNS query, or "refused"
//   response BYTES ID        the addresses of a DNS response, or "refused"

#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

#include "dns/message.h"
#include "json/parser.h"
#include "json/writer.h"
#include "session/encoding.h"
#include "session/sha256.h"

namespace quorvane::bench {
namespace {

std::string from_hex(const std::string& digits) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

std::span<const std::uint8_t> as_bytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::string addresses(const DnsAnswer& answer) {
    if (!answer.ok) return "refused";
    std::string line;
    for (const std::string& address : answer.addresses) {
        line += (line.empty() ? "" : " ") + address;
    }
    return line;
}

std::string answer(std::istream& question) {
    std::string what;
    std::string bytes;
    std::uint16_t identifier = 0;
    std::uint16_t type = 0;
    question >> what;
    if (what == "query") {
        std::string name;
        question >> name >> identifier >> type;
        const auto query = build_dns_query(name, identifier, type);
        return query ? hex_lower(as_bytes(*query)) : "refused";
    }
    question >> bytes >> identifier;
    bytes = from_hex(bytes);
    if (what == "json") {
        const JsonParseResult parsed = parse_json(bytes, kApplicationJsonLimits);
        return parsed.ok ? hex_lower(as_bytes(write_json(parsed.value).view())) : "refused";
    }
    if (what == "sha256") return hex_lower(sha256(bytes));
    if (what == "base64url") return base64url(as_bytes(bytes));
    if (what == "response") return addresses(parse_dns_response(bytes, identifier));
    std::cerr << "probe: cannot answer " << what << '\n';
    std::exit(2);
}

}  // namespace
}  // namespace quorvane::bench

int main() {
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream question(line);
        std::cout << quorvane::bench::answer(question) << '\n';
    }
    return 0;
}
