#include "support/process.h"

#include <algorithm>

namespace quorvane {
namespace {

char* no_environment[] = {nullptr};

// Set once at start.
std::span<char* const> arguments_after_name;
char** environment = no_environment;

}  // namespace

void set_process_vectors(int count, char** arguments) {
    arguments_after_name = {arguments + std::min(count, 1), arguments + count};
    environment = arguments + count + 1;
}

std::span<char* const> process_arguments() { return arguments_after_name; }

char* const* process_environment() { return environment; }

std::optional<std::string_view> lookup_env(std::string_view name) {
    for (char** entry = environment; *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        if (text.size() > name.size() && text[name.size()] == '=' && text.starts_with(name)) {
            return text.substr(name.size() + 1);
        }
    }
    return std::nullopt;
}

void prepare_process() {
    for (int stream = 0; stream <= 2; ++stream) {
        if (kernel::fcntl(stream, F_GETFD) != -EBADF) continue;
        // The lowest free number is this one.  Without a /dev, a descriptor of the root directory
        // occupies the number and refuses every read and write.
        if (kernel::open("/dev/null", O_RDWR) < 0) {
            static_cast<void>(kernel::open("/", O_PATH | O_DIRECTORY));
        }
    }
    kernel::set_signal(SIGPIPE, SIG_IGN);
    kernel::set_signal(SIGXFSZ, SIG_IGN);
}

}  // namespace quorvane
