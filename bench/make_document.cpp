// Writes one of the documents that the benchmarks measure with to standard output.
//
//   make_document KIND BYTES

#include <cstdio>
#include <cstdlib>

#include "documents.h"

int main(int argc, char** argv) {
    using namespace quorvane::bench;
    for (const DocumentKind& kind : kDocumentKinds) {
        if (argc != 3 || kind.name != argv[1]) continue;
        const std::string document = kind.make(std::strtoul(argv[2], nullptr, 10));
        return std::fwrite(document.data(), 1, document.size(), stdout) == document.size() ? 0 : 1;
    }
    std::fputs("make_document KIND BYTES, where KIND is one of\n", stderr);
    for (const DocumentKind& kind : kDocumentKinds)
        std::fprintf(stderr, "  %s\n", kind.name.data());
    return 2;
}
