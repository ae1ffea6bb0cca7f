// The first parse and the first write of a fresh process, which is what a program that lives for
// one command does: memory comes from the kernel untouched, nothing is warm.
//
//   json_first [ROUNDS] [BYTES] [DOCUMENT]    ROUNDS processes for each parser, on documents of
//                                             BYTES, all of them or one
//
// "Ours, plain" is the same without the vector forms of the scans: the program json_first_plain.
//
// Prints, for each document and parser, the median CPU time of parse and write as a ratio to
// ours, and the memory that the tree takes.  The rounds of all parsers are interleaved.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <vector>

#include "documents.h"
#include "json_peers.h"

namespace quorvane::bench {
namespace {

struct Sample {
    double parse_us = 0;
    double write_us = 0;
    double tree_bytes = 0;  // Growth of the resident memory.
};

double cpu_us() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
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
Sample measure(std::string_view input) {
    Tree tree(input);
    Sample sample;
    const double resident = resident_bytes();
    double start = cpu_us();
    if (!tree.parse()) std::abort();
    sample.parse_us = cpu_us() - start;
    sample.tree_bytes = resident_bytes() - resident;
    start = cpu_us();
    if (tree.write() == 0) std::abort();
    sample.write_us = cpu_us() - start;
    return sample;
}

struct Contender {
    const char* name;
    Sample (*run)(std::string_view input);
    const char* program_suffix = "";  // Which form of this program measures.
};

constexpr Contender kContenders[] = {
    {"ours", measure<OurTree>},          {"ours, copying", measure<OurCopyingTree>},
    {"rapidjson", measure<RapidTree>},   {"simdjson", measure<SimdTree>},
    {"nlohmann", measure<NlohmannTree>}, {"ours, plain", measure<OurTree>, "_plain"},
};

// The measured process: reads the document from descriptor 0, writes its sample to descriptor 1.
int run_child(const char* name) {
    const auto size = static_cast<std::size_t>(lseek(0, 0, SEEK_END));
    // The input lies in small pages, as bytes that came from a socket or a file do.
    void* const pages = mmap(nullptr, size + kInputPadding, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) return 1;
    std::size_t filled = 0;
    while (filled < size) {
        const ssize_t got =
            pread(0, static_cast<char*>(pages) + filled, size - filled, static_cast<off_t>(filled));
        if (got <= 0) return 1;
        filled += static_cast<std::size_t>(got);
    }
    for (const Contender& contender : kContenders) {
        if (std::strcmp(contender.name, name) != 0) continue;
        const Sample sample = contender.run({static_cast<const char*>(pages), size});
        const bool written = write(1, &sample, sizeof sample) == sizeof sample;
        _exit(written ? 0 : 1);
    }
    return 1;
}

Sample run_process(const std::string& self, const Contender& contender, int document) {
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    const pid_t child = fork();
    if (child == 0) {
        dup2(document, 0);
        dup2(ends[1], 1);
        const std::string program = self + contender.program_suffix;
        execl(program.c_str(), program.c_str(), "--child", contender.name, nullptr);
        _exit(1);
    }
    close(ends[1]);
    Sample sample;
    const bool complete = read(ends[0], &sample, sizeof sample) == sizeof sample;
    close(ends[0]);
    waitpid(child, nullptr, 0);
    if (!complete) {
        std::fprintf(stderr, "%s failed\n", contender.name);
        std::abort();
    }
    return sample;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

Sample median_of(const std::vector<Sample>& samples) {
    const auto of = [&](double Sample::*field) {
        std::vector<double> values(samples.size());
        std::transform(samples.begin(), samples.end(), values.begin(),
                       [field](const Sample& sample) { return sample.*field; });
        return median(std::move(values));
    };
    return {of(&Sample::parse_us), of(&Sample::write_us), of(&Sample::tree_bytes)};
}

void race(const std::string& self, const DocumentKind& kind, long rounds, std::size_t bytes) {
    const std::string document = kind.make(bytes);
    const int file = memfd_create("document", MFD_CLOEXEC);
    if (write(file, document.data(), document.size()) != static_cast<ssize_t>(document.size())) {
        std::abort();
    }
    std::map<std::string, std::vector<Sample>> samples;
    for (long round = 0; round < rounds; ++round) {
        for (const Contender& contender : kContenders) {
            samples[contender.name].push_back(run_process(self, contender, file));
        }
    }
    close(file);
    const Sample ours = median_of(samples[kContenders[0].name]);
    const auto size = static_cast<double>(document.size());
    for (const Contender& contender : kContenders) {
        const Sample got = median_of(samples[contender.name]);
        std::printf("%-14s %-14s parse %6.2f x %7.3f ns/B   write %6.2f x %7.3f ns/B   %5.2f B/B\n",
                    std::string(kind.name).c_str(), contender.name, got.parse_us / ours.parse_us,
                    got.parse_us * 1e3 / size, got.write_us / ours.write_us,
                    got.write_us * 1e3 / size, got.tree_bytes / size);
    }
    std::fflush(stdout);
}

}  // namespace
}  // namespace quorvane::bench

int main(int argc, char** argv) {
    using namespace quorvane::bench;
    if (argc == 3 && std::strcmp(argv[1], "--child") == 0) return run_child(argv[2]);
    const long rounds = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 21;
    const std::size_t bytes = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : kFullSize;
    const char* const only = argc > 3 ? argv[3] : "";
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    for (const DocumentKind& kind : kDocumentKinds) {
        if (*only != '\0' && kind.name != only) continue;
        race(self, kind, rounds, bytes);
    }
    return 0;
}
