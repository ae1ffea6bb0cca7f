#pragma once

#include <string>

namespace quorvane {

/// The PEM file of certificates to trust, or the empty text for OpenSSL's own locations (those of
/// SSL_CERT_FILE and SSL_CERT_DIR, else the ones that the library was built with).
///
/// A build that shares the system's OpenSSL always answers the empty text.  One that carries
/// OpenSSL with it (QUORVANE_SEARCH_TRUST_STORE) may run on a system that keeps its certificates
/// elsewhere: when neither variable is set and the library's own locations do not exist, the
/// answer is the first file that exists of the places where Linux distributions keep them.
[[nodiscard]] std::string find_trust_store();

}  // namespace quorvane
