#include "session/browser.h"

#include "support/process.h"
#include "support/syscall.h"
#include "support/text.h"

namespace quorvane {
namespace {

// Between fork and execve only kernel calls are made.
[[noreturn]] void become_command(const char* path, char* const* arguments, mode_t user_umask) {
    // A session of its own: the opener can neither take the terminal nor be ended by its Ctrl-C.
    static_cast<void>(kernel::setsid());
    static_cast<void>(kernel::umask(user_umask));
    kernel::set_signal(SIGPIPE, SIG_DFL);
    kernel::set_signal(SIGXFSZ, SIG_DFL);
    const long null_device = kernel::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null_device >= 0) {
        for (int stream = 0; stream <= 2; ++stream) {
            static_cast<void>(kernel::dup3(static_cast<int>(null_device), stream, 0));
        }
    }
    static_cast<void>(kernel::execve(path, arguments, process_environment()));
    kernel::exit(127);
}

}  // namespace

std::optional<std::string> find_executable(std::string_view name) {
    if (name.find('/') != std::string_view::npos) return std::string(name);
    const std::string_view search_path =
        lookup_env("PATH").value_or("/usr/local/bin:/usr/bin:/bin");
    for (const std::string_view directory : split(search_path, ':')) {
        if (directory.empty()) continue;
        std::string candidate = concat({directory, "/", name});
        if (kernel::access(candidate.c_str(), X_OK) >= 0) return candidate;
    }
    return std::nullopt;
}

bool launch_browser(std::vector<std::string> command, unsigned user_umask) {
    if (command.empty()) return false;
    const std::optional<std::string> executable = find_executable(command.front());
    if (!executable) return false;

    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& text : command) arguments.push_back(text.data());
    arguments.push_back(nullptr);

    const long child = kernel::fork();
    if (child == 0) become_command(executable->c_str(), arguments.data(), user_umask);
    return child > 0;
}

}  // namespace quorvane
