// Does one wrong thing, named by its first argument, and has to die of it.
#include <cstdlib>
#include <cstring>
#include <vector>
namespace {
constexpr unsigned long kFrame = 512;
volatile unsigned long size = 64;
[[gnu::noinline]] void fill_frame(unsigned long count) {
    char bytes[kFrame];
    volatile char* at = bytes;
    for (unsigned long i = 0; i < count; ++i) at[i] = 1;
}
[[gnu::noinline]] int read_frame() {
    volatile char bytes[kFrame];
    return bytes[kFrame / 2];
}
}  // namespace
int main(int, char** words) {
    const char what = words[1][0];
    const int table[4] = {static_cast<int>(size)};
    const std::vector<int> list(3);
    if (what == 'o') return (2147483600 + table[0]) == 0;
    if (what == 'b') return table[size / 8];
    if (what == 'e') return list[size];
    if (what == 'f') return *static_cast<char*>(std::memset(std::malloc(size / 2), 1, size));
    fill_frame(what == 's' ? kFrame + size : kFrame);
    return read_frame();
}
