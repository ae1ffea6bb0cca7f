#include "support/random.h"

#include "support/syscall.h"

namespace quorvane {

std::optional<std::string> secure_random_bytes(std::size_t count) {
    std::string bytes(count, '\0');
    std::size_t filled = 0;
    while (filled < count) {
        const long got = kernel::getrandom(bytes.data() + filled, count - filled);
        if (got == -EINTR) continue;
        if (got <= 0) return std::nullopt;
        filled += static_cast<std::size_t>(got);
    }
    return bytes;
}

}  // namespace quorvane
