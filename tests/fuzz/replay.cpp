// Runs a fuzz target over the files of a folder: how the corpora are replayed by the tests, under
// any compiler.  Each input lies in a block of exactly its size.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int /*argc*/, char** argv) {
    int replayed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++replayed;
    }
    return replayed > 0 ? 0 : 1;  // An empty corpus checks nothing.
}
