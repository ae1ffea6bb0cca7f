// Parsing and writing JSON again and again in one process, beside other libraries.  Names are
// OPERATION/DOCUMENT/LIBRARY/BYTES; "per_byte" should stay the same as the bytes grow.  The first
// call of a process, which costs more, is what json_first measures.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "documents.h"
#include "json_peers.h"

namespace quorvane::bench {
namespace {

void count_bytes(benchmark::State& state, std::size_t size) {
    const auto bytes = static_cast<double>(state.iterations()) * static_cast<double>(size);
    const auto per_byte = benchmark::Counter::kIsRate | benchmark::Counter::kInvert;
    state.counters["per_byte"] = benchmark::Counter(bytes, per_byte);
}

// A document behind which kInputPadding bytes may be read.
struct Padded {
    explicit Padded(const std::string& document) : size(document.size()), bytes(document) {
        bytes.append(kInputPadding, '\0');
    }
    std::string_view view() const { return std::string_view(bytes).substr(0, size); }

    std::size_t size;
    std::string bytes;
};

template <typename Tree>
void parse(benchmark::State& state, DocumentKind kind, std::size_t size) {
    const Padded document(kind.make(size));
    for ([[maybe_unused]] auto _ : state) {
        state.PauseTiming();  // For what hands over its input: the copy is not the parser's work.
        auto tree = std::make_unique<Tree>(document.view());
        state.ResumeTiming();
        if (!tree->parse()) std::abort();
        state.PauseTiming();
        tree.reset();
        state.ResumeTiming();
    }
    count_bytes(state, document.size);
}

template <typename Tree>
void write(benchmark::State& state, DocumentKind kind, std::size_t size) {
    const Padded document(kind.make(size));
    Tree tree(document.view());
    if (!tree.parse()) std::abort();
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(tree.write());
    count_bytes(state, document.size);
}

void write_indented(benchmark::State& state, DocumentKind kind, std::size_t size) {
    const Padded document(kind.make(size));
    OurTree tree(document.view());
    if (!tree.parse()) std::abort();
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(tree.write_indented());
    count_bytes(state, document.size);
}

template <typename Tree>
void add(const char* library, const DocumentKind& kind, std::size_t size) {
    const auto name = [&](const char* operation) {
        return std::string(operation) + "/" + std::string(kind.name) + "/" + library + "/" +
               std::to_string(size);
    };
    benchmark::RegisterBenchmark(name("parse").c_str(), parse<Tree>, kind, size);
    benchmark::RegisterBenchmark(name("write").c_str(), write<Tree>, kind, size);
    if (std::string_view(library) == "ours") {
        benchmark::RegisterBenchmark(name("write_indented").c_str(), write_indented, kind, size);
    }
}

void add_all() {
    for (const DocumentKind& kind : kDocumentKinds) {
        for (const std::size_t part : {8, 4, 2, 1}) add<OurTree>("ours", kind, kFullSize / part);
        add<RapidTree>("rapidjson", kind, kFullSize);
        add<SimdTree>("simdjson", kind, kFullSize);
        add<NlohmannTree>("nlohmann", kind, kFullSize);
    }
}

}  // namespace
}  // namespace quorvane::bench

int main(int argc, char** argv) {
    quorvane::bench::add_all();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
