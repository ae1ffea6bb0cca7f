#include "support/output.h"

#include "support/syscall.h"
#include "support/text.h"

namespace quorvane {

bool write_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const long written = kernel::write(fd, bytes.data(), bytes.size());
        if (written == -EINTR) continue;
        if (written <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

void print_line(Stream stream, std::string_view text) {
    write_all(static_cast<int>(stream), concat({text, "\n"}));
}

int fail(std::string_view message) {
    print_line(Stream::kError, message);
    return 1;
}

}  // namespace quorvane
