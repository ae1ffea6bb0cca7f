// Responses, name server answers and digests.  The names of the first are
// response/FRAMING/READ_SIZE/BYTES; "per_byte" should stay the same as the bytes grow.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "dns/message.h"
#include "http/reader.h"
#include "session/sha256.h"

namespace quorvane::bench {
namespace {

constexpr std::size_t kMostBytes = 8'388'608;

void count_bytes(benchmark::State& state, std::size_t size) {
    const auto bytes = static_cast<double>(state.iterations()) * static_cast<double>(size);
    const auto per_byte = benchmark::Counter::kIsRate | benchmark::Counter::kInvert;
    state.counters["per_byte"] = benchmark::Counter(bytes, per_byte);
}

/// A whole response of about `size` bytes, in chunks of `chunk_size` or, when that is 0, with its
/// length in the head.
std::string make_response(std::size_t chunk_size, std::size_t size) {
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n";
    constexpr std::size_t kHeadRoom = 200;
    if (chunk_size == 0) {
        const std::string body(size - kHeadRoom, 'x');
        return head + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }
    char chunk_head[32];
    std::snprintf(chunk_head, sizeof chunk_head, "%zx\r\n", chunk_size);
    const std::string chunk = chunk_head + std::string(chunk_size, 'x') + "\r\n";
    std::string response = head + "Transfer-Encoding: chunked\r\n\r\n";
    while (response.size() + chunk.size() + kHeadRoom <= size) response += chunk;
    return response + "0\r\n\r\n";
}

/// As a transport does it: take a piece, look whether the message is whole, at last cut it apart.
void read_response(benchmark::State& state, std::size_t chunk_size, std::size_t read_size,
                   std::size_t size) {
    const std::string response = make_response(chunk_size, size);
    for (auto _ : state) {
        ByteBuffer received;
        ResponseFraming framing(kMostBytes);
        for (std::string_view rest = response; !rest.empty();) {
            received.append(rest.substr(0, read_size));
            rest.remove_prefix(std::min(read_size, rest.size()));
            framing.advance(received.view());
        }
        if (!framing.complete()) std::abort();
        const ResponseParse parse = parse_response(std::move(received), kMostBytes);
        if (!parse.complete) std::abort();
        benchmark::DoNotOptimize(parse.response.body.size());
    }
    count_bytes(state, response.size());
}

/// An answer with `count` addresses, each name a pointer to the question.
std::string make_dns_answer(std::size_t count) {
    using namespace std::string_literals;
    std::string datagram = "\0\x01\x81\x80\0\x01"s + static_cast<char>(count / 256) +
                           static_cast<char>(count % 256) + "\0\0\0\0\3api\7example\0\0\x1C\0\x01"s;
    const std::string address = "\x20\x01\x0D\xB8\0\0\0\0\0\0\0\0\0\0\0\x01"s;
    for (std::size_t i = 0; i < count; ++i) {
        datagram += "\xC0\x0C\0\x1C\0\x01\0\0\0\x3C\0\x10"s + address;
    }
    return datagram;
}

void read_dns_answer(benchmark::State& state, std::size_t count) {
    const std::string datagram = make_dns_answer(count);
    for (auto _ : state) {
        const DnsAnswer answer = parse_dns_response(datagram, 1);
        if (answer.addresses.size() != count) std::abort();
    }
    count_bytes(state, datagram.size());
}

void digest(benchmark::State& state, std::size_t size) {
    const std::string bytes(size, 'x');
    for (auto _ : state) benchmark::DoNotOptimize(sha256(bytes));
    count_bytes(state, size);
}

void register_all() {
    for (const std::size_t chunk_size : {0, 1, 512, 16'384}) {
        for (const std::size_t read_size : {1, 1'460, 16'384, 65'536}) {
            for (const std::size_t eighths : {1, 2, 4, 8}) {
                const std::size_t size = kMostBytes / 8 * eighths;
                const std::string framing =
                    chunk_size == 0 ? "length" : "chunks of " + std::to_string(chunk_size);
                const std::string name = "response/" + framing + "/" + std::to_string(read_size) +
                                         "/" + std::to_string(size);
                benchmark::RegisterBenchmark(name.c_str(), read_response, chunk_size, read_size,
                                             size);
            }
        }
    }
    for (const std::size_t count : {1, 16, 256}) {
        const std::string name = "dns/" + std::to_string(count);
        benchmark::RegisterBenchmark(name.c_str(), read_dns_answer, count);
    }
    for (const std::size_t size : {32, 1'024, 1'048'576}) {
        const std::string name = "sha256/" + std::to_string(size);
        benchmark::RegisterBenchmark(name.c_str(), digest, size);
    }
}

}  // namespace
}  // namespace quorvane::bench

int main(int argc, char** argv) {
    quorvane::bench::register_all();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
