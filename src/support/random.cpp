#include "support/random.h"

#include "support/syscall.h"

namespace quorvane {

std::optional<std::string> secure_random_bytes(std::size_t count) {
    std::string bytes(count, '\0');
    std::size_t filled_bytes = 0;
    while (filled_bytes < count) {
        const long got = kernel::getrandom(bytes.data() + filled_bytes, count - filled_bytes);
        if (got == -EINTR) continue;
        if (got <= 0) return std::nullopt;
        filled_bytes += static_cast<std::size_t>(got);
    }
    return bytes;
}

}  // namespace quorvane
