#include "support/standard_streams.h"

#include "support/syscall.h"

namespace quorvane {

void secure_standard_streams() {
    for (int stream = 0; stream <= 2; ++stream) {
        if (kernel::fcntl(stream, F_GETFD) != -EBADF) continue;
        // The lowest free number is this one.  Where there is no /dev, a descriptor of the root
        // folder serves: it takes up the number and refuses every read and write.
        if (kernel::open("/dev/null", O_RDWR) < 0) {
            static_cast<void>(kernel::open("/", O_PATH | O_DIRECTORY));
        }
    }
    kernel::set_signal(SIGPIPE, SIG_IGN);
    kernel::set_signal(SIGXFSZ, SIG_IGN);
}

}  // namespace quorvane
