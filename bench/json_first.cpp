// The first parse and the first write of a process, which is what a program that lives for one
// command does: memory comes from the kernel untouched, nothing is warm.
//
//   json_ours <DOCUMENT
//   json_peers rapidjson|simdjson|nlohmann <DOCUMENT
//
// Printed are the CPU time of the parse and of the write, in nanoseconds, and how many bytes the
// tree added to the resident memory.  Every library takes the same bytes, keeps a complete tree,
// and writes it as compact text.  Compiled twice, because our operator new would give the others
// our huge pages.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string_view>

#ifdef OURS
#include "json/parser.h"
#include "json/writer.h"
#else
#define RAPIDJSON_SSE2 1
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>

#include <nlohmann/json.hpp>
#include <string>
#endif

namespace {

#ifdef OURS
// The document as the program has it: a buffer that the parser adopts.
struct OurTree {
    explicit OurTree(std::string_view input) : buffer(quorvane::ByteBuffer::copy_of(input)) {}
    bool parse() {
        result = quorvane::parse_json(std::move(buffer), quorvane::kApplicationJsonLimits);
        return result.ok;
    }
    std::size_t write() { return (text = quorvane::write_json(result.value)).size(); }
    quorvane::ByteBuffer buffer;
    quorvane::JsonParseResult result;
    quorvane::ByteBuffer text;
};
#else
// As in our parser numbers stay text, UTF-8 is checked and the input is not changed in place.
struct RapidTree {
    explicit RapidTree(std::string_view bytes) : input(bytes) {}
    bool parse() {
        constexpr unsigned kFlags =
            rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseValidateEncodingFlag;
        return !document.Parse<kFlags>(input.data(), input.size()).HasParseError();
    }
    std::size_t write() {
        rapidjson::Writer<rapidjson::StringBuffer> writer(text);
        document.Accept(writer);
        return text.GetSize();
    }
    std::string_view input;
    rapidjson::Document document;
    rapidjson::StringBuffer text;
};

struct NlohmannTree {
    explicit NlohmannTree(std::string_view bytes) : input(bytes) {}
    bool parse() { return !(tree = nlohmann::json::parse(input, nullptr, false)).is_discarded(); }
    std::size_t write() { return (text = tree.dump()).size(); }
    std::string_view input;
    nlohmann::json tree;
    std::string text;
};

// Its input is padded, so that it copies nothing either.
struct SimdTree {
    explicit SimdTree(std::string_view bytes) : input(bytes) {}
    bool parse() {
        return parser.parse(input.data(), input.size(), false).get(root) == simdjson::SUCCESS;
    }
    std::size_t write() { return (text = simdjson::minify(root)).size(); }
    std::string_view input;
    simdjson::dom::parser parser;
    simdjson::dom::element root;
    std::string text;
};
#endif

double cpu_ns() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

double resident_bytes() {
    double total_pages = 0;
    double resident_pages = 0;
    std::ifstream("/proc/self/statm") >> total_pages >> resident_pages;
    return resident_pages * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// Standard input in small pages, as bytes that came from a socket or a file are, with zero bytes
// after it that a parser may read.
std::string_view read_input() {
    constexpr std::size_t kPadding = 64;  // The strictest of them, simdjson, wants so many.
    const auto size = static_cast<std::size_t>(lseek(0, 0, SEEK_END));
    void* const pages =
        mmap(nullptr, size + kPadding, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED || pread(0, pages, size, 0) != static_cast<ssize_t>(size)) std::abort();
    return {static_cast<const char*>(pages), size};
}

template <typename Tree> [[noreturn]] void measure() {
    Tree tree(read_input());
    const double resident = resident_bytes();
    const double begin = cpu_ns();
    if (!tree.parse()) std::abort();
    const double parse_ns = cpu_ns() - begin;
    const double tree_bytes = resident_bytes() - resident;
    const double parsed = cpu_ns();
    if (tree.write() == 0) std::abort();
    std::printf("%.0f %.0f %.0f\n", parse_ns, cpu_ns() - parsed, tree_bytes);
    std::fflush(stdout);
    _exit(0);  // Freeing the tree is not measured, and takes time.
}

}  // namespace

#ifdef OURS
int main() { measure<OurTree>(); }
#else
int main(int argc, char** argv) {
    const std::string_view library = argc == 2 ? argv[1] : "";
    if (library == "rapidjson") measure<RapidTree>();
    if (library == "simdjson") measure<SimdTree>();
    if (library == "nlohmann") measure<NlohmannTree>();
    return 2;
}
#endif
