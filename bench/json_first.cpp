// The first parse and the first write of a process, which is what a program that lives for one
// command does: memory comes from the kernel untouched, nothing is warm.
//
//   json_first LIBRARY <DOCUMENT
//
// Prints the CPU time of the parse and of the write, in nanoseconds, and how many bytes the tree
// added to the resident memory.  Every library takes the same bytes, keeps a complete tree, and
// writes it as compact text.

#define RAPIDJSON_SSE2 1
#include <fcntl.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "json/parser.h"
#include "json/writer.h"

namespace quorvane::bench {
namespace {

// The document as the program has it: a buffer that the parser adopts.
struct OurTree {
    explicit OurTree(std::string_view input) : buffer(ByteBuffer::copy_of(input)) {}
    bool parse() {
        result = parse_json(std::move(buffer), kApplicationJsonLimits);
        return result.ok;
    }
    std::size_t write() {
        text = write_json(result.value);
        return text.size();
    }
    ByteBuffer buffer;
    JsonParseResult result;
    ByteBuffer text;
};

// As in our parser numbers stay text, UTF-8 is checked and the input is not changed in place.
struct RapidTree {
    explicit RapidTree(std::string_view bytes) : input(bytes) {}
    bool parse() {
        constexpr unsigned kFlags =
            rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseValidateEncodingFlag;
        document.Parse<kFlags>(input.data(), input.size());
        return !document.HasParseError();
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
    bool parse() {
        document = nlohmann::json::parse(input, nullptr, false);
        return !document.is_discarded();
    }
    std::size_t write() {
        text = document.dump();
        return text.size();
    }
    std::string_view input;
    nlohmann::json document;
    std::string text;
};

// Its input is padded, so that it copies nothing either.
struct SimdTree {
    explicit SimdTree(std::string_view bytes) : input(bytes) {}
    bool parse() {
        return parser.parse(input.data(), input.size(), false).get(root) == simdjson::SUCCESS;
    }
    std::size_t write() {
        text = simdjson::minify(root);
        return text.size();
    }
    std::string_view input;
    simdjson::dom::parser parser;
    simdjson::dom::element root;
    std::string text;
};

double cpu_ns() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

double resident_bytes() {
    // The second number is that of the pages in memory.
    char text[128] = {};
    const int file = open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
    if (read(file, text, sizeof text - 1) <= 0) std::abort();
    close(file);
    const char* const second = std::strchr(text, ' ');
    if (second == nullptr) std::abort();
    return static_cast<double>(std::strtol(second, nullptr, 10) * sysconf(_SC_PAGESIZE));
}

template <typename Tree>
void measure(std::string_view input) {
    Tree tree(input);
    const double resident = resident_bytes();
    const double begin = cpu_ns();
    if (!tree.parse()) std::abort();
    const double parse_ns = cpu_ns() - begin;
    const double tree_bytes = resident_bytes() - resident;
    const double parsed = cpu_ns();
    if (tree.write() == 0) std::abort();
    std::printf("%.0f %.0f %.0f\n", parse_ns, cpu_ns() - parsed, tree_bytes);
}

// Standard input in small pages, as bytes that came from a socket or a file are, with zero bytes
// after it that a parser may read.
std::string_view read_input() {
    constexpr std::size_t kPadding = 64;  // The strictest of them, simdjson, wants so many.
    const auto size = static_cast<std::size_t>(lseek(0, 0, SEEK_END));
    void* const pages =
        mmap(nullptr, size + kPadding, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED || pread(0, pages, size, 0) != static_cast<ssize_t>(size)) {
        std::abort();
    }
    return {static_cast<const char*>(pages), size};
}

}  // namespace
}  // namespace quorvane::bench

int main(int argc, char** argv) {
    using namespace quorvane::bench;
    const std::string_view library = argc == 2 ? argv[1] : "";
    const std::string_view input = read_input();
    if (library == "ours") {
        measure<OurTree>(input);
    } else if (library == "rapidjson") {
        measure<RapidTree>(input);
    } else if (library == "simdjson") {
        measure<SimdTree>(input);
    } else if (library == "nlohmann") {
        measure<NlohmannTree>(input);
    } else {
        return 2;
    }
    std::fflush(stdout);
    _exit(0);  // Freeing the trees is not measured, and takes time.
}
