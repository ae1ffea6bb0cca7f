// Does one wrong thing, named by its first argument, and has to die of it.
#include <cstdlib>
#include <cstring>
#include <vector>
#if !defined(__USE_FORTIFY_LEVEL) || __USE_FORTIFY_LEVEL < 3
#error "_FORTIFY_SOURCE is not 3, or there is no optimisation for it to work with"
#endif
namespace {
volatile int one = 1;
volatile unsigned long size = 64;
[[gnu::noinline]] void use(volatile char* bytes) { bytes[0] = bytes[1]; }
[[gnu::noinline]] void dirty() {
    volatile char bytes[512];
    for (volatile char& byte : bytes) byte = 0x55;
}
[[gnu::noinline]] int dirt() {
    volatile char bytes[512];
    int sum = 0;
    for (volatile char& byte : bytes) sum |= byte;
    return sum;
}
[[gnu::noinline]] int bounds() {
    int table[4] = {one, 2, 3, 4};
    return table[size / 8];
}
[[gnu::noinline]] int fortified() {
    char* block = static_cast<char*>(std::malloc(size / 2));
    std::memset(block, one, size);
    use(block);
    return 0;
}
[[gnu::noinline]] int smashed() {
    char bytes[16];
    volatile char* at = bytes;
    for (unsigned long i = 0; i < size; ++i) at[i] = 1;
    use(at);
    return 0;
}
}  // namespace
int main(int, char** words) {
    std::vector<int> list(3);
    const char what = words[1][0];
    if (what == 'o') return (2147483647 + one) == 0;
    if (what == 'b') return bounds();
    if (what == 'e') return list[size];
    if (what == 'f') return fortified();
    if (what == 's') return smashed();
    dirty();
    return dirt();
}
