#include "session/trust_store.h"

#ifdef QUORVANE_SEARCH_TRUST_STORE
#include <algorithm>
#include <string_view>

#include "support/files.h"
#include "support/process.h"
#endif

namespace quorvane {

#ifdef QUORVANE_SEARCH_TRUST_STORE
namespace {

// What Debian's libcrypto.a was built with; see `openssl version -d`.
constexpr std::string_view kBuiltInPlaces[] = {"/usr/lib/ssl/cert.pem", "/usr/lib/ssl/certs"};

constexpr std::string_view kKnownFiles[] = {
    "/etc/ssl/certs/ca-certificates.crt",                 // Debian, Alpine, Arch
    "/etc/pki/tls/certs/ca-bundle.crt",                   // Fedora, RHEL
    "/etc/ssl/ca-bundle.pem",                             // openSUSE
    "/etc/pki/tls/cacert.pem",                            // OpenELEC
    "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem",  // newer RHEL
    "/etc/ssl/cert.pem",                                  // Alpine without its bundle
};

bool exists(std::string_view path) { return stat_path(path).kind != FileKind::kNone; }

bool is_file(std::string_view path) { return stat_path(path).kind == FileKind::kRegular; }

}  // namespace

std::string find_trust_store() {
    // For OpenSSL, too, a variable that is empty is set.
    if (lookup_env("SSL_CERT_FILE") || lookup_env("SSL_CERT_DIR")) return {};
    if (std::ranges::any_of(kBuiltInPlaces, exists)) return {};
    const auto* const found = std::ranges::find_if(kKnownFiles, is_file);
    return found == std::end(kKnownFiles) ? std::string() : std::string(*found);
}
#else
std::string find_trust_store() { return {}; }
#endif

}  // namespace quorvane
