#pragma once

#include <string>

namespace quorvane {

/// The PEM file of certificates to trust, or the empty text for OpenSSL's own locations (those of
/// SSL_CERT_FILE and SSL_CERT_DIR, else the ones that the library was built with).
///
/// In a build that uses the system's OpenSSL the result is always empty.  A build that contains
/// OpenSSL (QUORVANE_SEARCH_TRUST_STORE) may run on a system that keeps its certificates elsewhere:
/// when neither variable is set and the library's own locations do not exist, the result is the
/// first existing file among the places where Linux distributions keep them.
[[nodiscard]] std::string find_trust_store();

}  // namespace quorvane
