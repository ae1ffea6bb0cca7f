#include "support/atomic_write.h"

#include <algorithm>
#include <string>

#include "support/fd.h"
#include "support/files.h"
#include "support/process.h"
#include "support/text.h"

namespace quorvane {
namespace {

// Owns the temporary file: unless it was renamed, it is removed with this object.
class TemporaryFile {
  public:
    explicit TemporaryFile(std::string_view target)
        : target_(target), path_(target_ + ".tmp." + std::to_string(kernel::getpid())) {}
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        static_cast<void>(fd_.close());  // Some file systems remove no open file.
        if (!renamed_) remove_path(path_);
    }

    bool create() {
        if (open_exclusively()) return true;
        // An earlier process with the same number has left it.
        remove_path(path_);
        return open_exclusively();
    }

    bool write_and_sync(std::string_view bytes) {
        while (!bytes.empty()) {
            // EINTR is not retried: no signal handler is ever installed, so it is an error like any
            // other, and the old file stays.
            const long written = kernel::write(fd_.get(), bytes.data(), bytes.size());
            if (written <= 0) return false;
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
        const bool synchronised = kernel::fsync(fd_.get()) >= 0;
        // Some file systems report a failed write only when the file is closed.
        return fd_.close() >= 0 && synchronised;
    }

    bool rename_to_target() {
        renamed_ = kernel::rename(path_.c_str(), target_.c_str()) >= 0;
        return renamed_;
    }

  private:
    bool open_exclusively() {
        constexpr mode_t kMode = 0666;
        const int flags = O_WRONLY | O_CREAT | O_EXCL | O_TRUNC | O_CLOEXEC;
        fd_ = FdHandle(kernel::open(path_.c_str(), flags, kMode));
        return fd_.valid();
    }

    std::string target_;
    std::string path_;
    FdHandle fd_;
    bool renamed_ = false;
};

bool replace(const FileReplacement& replacement) {
    const bool reachable = ensure_directories(parent_directory(replacement.path));
    TemporaryFile file(replacement.path);
    return reachable && file.create() && file.write_and_sync(replacement.bytes) &&
           file.rename_to_target();
}

}  // namespace

std::size_t write_files_atomic(std::initializer_list<FileReplacement> files) {
    for (const FileReplacement& file : files) {
        struct stat ignored = {};
        const std::string path(file.path);
        static_cast<void>(kernel::stat(path.c_str(), &ignored, AT_SYMLINK_NOFOLLOW));
    }
    const SignalHold hold;
    const auto* const failed = std::ranges::find_if_not(files, replace);
    return static_cast<std::size_t>(failed - files.begin());
}

}  // namespace quorvane
