#include "support/files.h"

#include "support/fd.h"

namespace quorvane {
namespace {

// O_NONBLOCK keeps a FIFO that has just replaced the file from blocking the open until somebody
// writes to it.  It also refuses a file on which another process holds a lease (fcntl(2),
// F_SETLEASE), which no FIFO has; that one is opened again, and the kernel bounds the wait.
FdHandle open_for_reading(const std::string& path) {
    const int flags = O_RDONLY | O_CLOEXEC;
    const long opened = kernel::open(path.c_str(), flags | O_NONBLOCK);
    return FdHandle(opened == -EAGAIN ? kernel::open(path.c_str(), flags) : opened);
}

}  // namespace

FileStatus stat_path(std::string_view path) {
    FileStatus status;
    status.path = path;
    struct stat record = {};
    if (kernel::stat(status.path.c_str(), &record) < 0) return status;
    status.kind = S_ISREG(record.st_mode)   ? FileKind::kRegular
                  : S_ISDIR(record.st_mode) ? FileKind::kDirectory
                                            : FileKind::kOther;
    status.size = record.st_size;
    const timespec& modified = record.st_mtim;
    if (__builtin_mul_overflow(modified.tv_sec, std::int64_t{1'000'000'000}, &status.modified_ns) ||
        __builtin_add_overflow(status.modified_ns, modified.tv_nsec, &status.modified_ns)) {
        status.modified_ns = 0;
    }
    return status;
}

ByteBuffer read_whole_file(std::string_view path, std::int64_t max_bytes) {
    ByteBuffer bytes;
    const FileStatus status = stat_path(path);
    if (status.kind != FileKind::kRegular || status.size < 0) return bytes;
    if (status.size > max_bytes) return bytes;
    const FdHandle fd = open_for_reading(status.path);
    if (!fd.valid()) return bytes;

    const auto size = static_cast<std::size_t>(status.size);
    char* const spare = bytes.spare(size);
    std::size_t filled_bytes = 0;
    while (filled_bytes < size) {
        const long got = kernel::read(fd.get(), spare + filled_bytes, size - filled_bytes);
        if (got <= 0) break;
        filled_bytes += static_cast<std::size_t>(got);
    }
    bytes.commit(filled_bytes);
    return bytes;
}

std::string parent_directory(std::string_view path) {
    if (path.empty()) return ".";
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return ".";
    return std::string(slash == 0 ? path.substr(0, 1) : path.substr(0, slash));
}

bool ensure_directories(std::string_view path) {
    constexpr mode_t kMode = 0777;
    std::string prefix;
    for (std::size_t i = 1; i <= path.size(); ++i) {
        if (i < path.size() && path[i] != '/') continue;
        prefix = path.substr(0, i);
        if (prefix == ".") continue;
        const long made = kernel::mkdir(prefix.c_str(), kMode);
        if (made < 0 && made != -EEXIST) return false;
    }
    return true;
}

bool remove_path(std::string_view path) {
    const std::string name(path);
    return kernel::unlink(name.c_str()) >= 0 || kernel::rmdir(name.c_str()) >= 0;
}

}  // namespace quorvane
