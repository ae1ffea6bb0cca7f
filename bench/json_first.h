#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

/// The first parse and the first write of a process, which is what a program that lives for one
/// command does: memory comes from the kernel untouched, nothing is warm.
///
/// Printed are the CPU time of the parse and of the write, in nanoseconds, and how many bytes the
/// tree added to the resident memory.  Every library takes the same bytes, keeps a complete tree,
/// and writes it as compact text.
namespace quorvane::bench {

inline double cpu_ns() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

inline double resident_bytes() {
    // The second number is that of the pages in memory.
    char text[128] = {};
    const int file = open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
    if (read(file, text, sizeof text - 1) <= 0) std::abort();
    close(file);
    const char* const second = std::strchr(text, ' ');
    if (second == nullptr) std::abort();
    return static_cast<double>(std::strtol(second, nullptr, 10) * sysconf(_SC_PAGESIZE));
}

/// Standard input in small pages, as bytes that came from a socket or a file are, with zero bytes
/// after it that a parser may read.
inline std::string_view read_input() {
    constexpr std::size_t kPadding = 64;  // The strictest of them, simdjson, wants so many.
    const auto size = static_cast<std::size_t>(lseek(0, 0, SEEK_END));
    void* const pages =
        mmap(nullptr, size + kPadding, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED || pread(0, pages, size, 0) != static_cast<ssize_t>(size)) {
        std::abort();
    }
    return {static_cast<const char*>(pages), size};
}

/// `Tree` is made from the input, then asked to parse it and to write what it has read.
template <typename Tree> [[noreturn]] void measure() {
    const std::string_view input = read_input();
    Tree tree(input);
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

}  // namespace quorvane::bench
