#include "session/trust_store.h"

#include <dirent.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string_view>
#include <tuple>
#include <vector>

#include "support/fd.h"
#include "support/files.h"
#include "support/process.h"
#include "support/syscall.h"
#include "support/text.h"

namespace quorvane {
namespace {

constexpr std::int64_t kMaxBundleBytes = 8'388'608;
constexpr std::size_t kMaxHashedNames = 10'000;

struct TrustPlace {
    const char* file;
    const char* directory;
};

constexpr TrustPlace kOpenSslPlace = {QUORVANE_OPENSSL_FOLDER "/cert.pem",
                                      QUORVANE_OPENSSL_FOLDER "/certs"};

bool changed_after(const struct stat& one, const struct stat& other) {
    return std::tie(one.st_mtim.tv_sec, one.st_mtim.tv_nsec) >
           std::tie(other.st_mtim.tv_sec, other.st_mtim.tv_nsec);
}

// Eight digits of the subject's hash, a dot, and a digit that counts the certificates with that
// hash.  Names with more digits are ignored; the file is then read.
bool is_hashed_name(std::string_view name) {
    return name.size() == 10 && name[8] == '.' && is_digit(name[9]) &&
           name.find_first_not_of("0123456789abcdef") == 8;
}

std::vector<std::string> sorted_hashed_names(const char* directory) {
    std::vector<std::string> names;
    const FdHandle fd(kernel::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    alignas(dirent) char records[32'768];
    while (names.size() < kMaxHashedNames) {
        const long size = kernel::getdents64(fd.get(), records, sizeof records);
        if (size <= 0) break;
        for (long at = 0; at < size;) {
            const auto* const record = reinterpret_cast<const dirent*>(records + at);
            if (is_hashed_name(record->d_name)) names.emplace_back(record->d_name);
            at += record->d_reclen;
        }
    }
    std::ranges::sort(names);
    return names;
}

// The sizes, sorted, of the different files that OpenSSL can find by hash in `directory`.  Nothing
// if one of them was changed after it.
std::vector<off_t> sizes_in_directory(const char* directory, const struct stat& directory_status) {
    std::vector<off_t> sizes;
    std::set<std::pair<dev_t, ino_t>> seen;
    std::string previous;
    for (const std::string& name : sorted_hashed_names(directory)) {
        // OpenSSL begins with 0 and stops at the first number that leads nowhere.
        std::string before = name;
        --before.back();
        if (name.back() != '0' && before != previous) continue;
        struct stat status = {};
        if (kernel::stat((std::string(directory) + "/" + name).c_str(), &status) < 0) continue;
        if (!S_ISREG(status.st_mode) || (status.st_mode & 0444) != 0444) continue;
        if (changed_after(status, directory_status)) return {};
        if (seen.emplace(status.st_dev, status.st_ino).second) sizes.push_back(status.st_size);
        previous = name;
    }
    std::ranges::sort(sizes);
    return sizes;
}

// Whether files of these sizes, at least one, are what `bundle` was made of.
bool sizes_match(const std::vector<off_t>& sizes, std::string_view bundle) {
    constexpr std::string_view kBegin = "-----BEGIN ";
    // The text before a certificate comes from its file, or from the tool that made the bundle.
    std::vector<off_t> with_text;
    std::vector<off_t> without_text;
    std::size_t end = 0;
    for (std::size_t begin = bundle.find(kBegin); begin != std::string_view::npos;
         begin = bundle.find(kBegin, begin + 1)) {
        // Overlapping blocks are not judged; searching on would be quadratic.
        if (begin < end) return false;
        const std::size_t start = end;
        const std::size_t last_line = bundle.find("-----END ", begin);
        end = std::min(bundle.find('\n', last_line), bundle.size() - 1) + 1;
        with_text.push_back(static_cast<off_t>(end - start));
        without_text.push_back(static_cast<off_t>(end - begin));
    }
    std::ranges::sort(with_text);
    std::ranges::sort(without_text);
    return sizes == with_text || sizes == without_text;
}

bool directory_serves(const TrustPlace& place) {
    struct stat directory = {};
    struct stat file = {};
    if (kernel::stat(place.directory, &directory) < 0) return false;
    if (kernel::stat(place.file, &file) < 0 || changed_after(file, directory)) return false;
    const std::vector<off_t> sizes = sizes_in_directory(place.directory, directory);
    if (sizes.empty()) return false;
    const ByteBuffer bundle = read_whole_file(place.file, kMaxBundleBytes);
    // A read that fails in the middle would hide the certificates after it.
    return static_cast<off_t>(bundle.size()) == file.st_size && sizes_match(sizes, bundle.view());
}

// False when OpenSSL must read the file.
bool use_directory_alone(const TrustPlace& place) {
    return directory_serves(place) && ::setenv("SSL_CERT_DIR", place.directory, 1) == 0 &&
           ::setenv("SSL_CERT_FILE", "", 1) == 0;
}

// The file to name to OpenSSL, or the empty text.
const char* decide() {
    for (const char* name : {"SSL_CERT_FILE", "SSL_CERT_DIR", "LD_LIBRARY_PATH"}) {
        if (lookup_env(name)) return "";
    }
#ifdef QUORVANE_SEARCH_TRUST_STORE
    constexpr TrustPlace kKnownPlaces[] = {
#include "session/trust_places.inc"
    };
    if (stat_path(kOpenSslPlace.file).kind == FileKind::kNone &&
        stat_path(kOpenSslPlace.directory).kind == FileKind::kNone) {
        for (const TrustPlace& place : kKnownPlaces) {
            if (stat_path(place.file).kind != FileKind::kRegular) continue;
            return use_directory_alone(place) ? "" : place.file;
        }
        return "";
    }
#endif
    static_cast<void>(use_directory_alone(kOpenSslPlace));
    return "";
}

}  // namespace

std::string choose_trust_store() {
    static const char* const chosen = decide();
    return chosen;
}

}  // namespace quorvane
