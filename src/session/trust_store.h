#pragma once

#include <string>

namespace quorvane {

/// Decides, once in the process, which certificates TLS trusts.  The result is a PEM file to name
/// to OpenSSL, or the empty text for OpenSSL's own places (those of SSL_CERT_FILE and SSL_CERT_DIR,
/// else a file and a directory that the library was built with).
///
/// OpenSSL reads the file completely, 0.14 ms for each certificate, before it looks up in the
/// directory the few that a chain needs.  So where the directory surely has all that the file has,
/// the C library's environment, which OpenSSL reads, makes it use the directory alone; other
/// programs are started with the environment that this one received.  It is sure when
///
/// - nothing was changed after the directory: not the file, nor any file that the directory leads
/// to;
/// - each certificate of the file has, by its size, a file of its own that everybody may read and
///   that the directory leads to under a name by which OpenSSL finds it.
///
/// Contents are not compared, because reading them is the cost to be saved.  A mere number would
/// let a certificate that only the directory has make up for one that only the file has.  In doubt
/// the file is read: that takes longer, and trusts the same.
///
/// When the user has set one of the two variables, even to the empty text, nothing is decided; nor
/// with LD_LIBRARY_PATH, which may name an OpenSSL with other places.
///
/// A build that contains OpenSSL (QUORVANE_SEARCH_TRUST_STORE) may run on a system that keeps its
/// certificates elsewhere: when neither of OpenSSL's own places exists, the first existing file of
/// trust_places.inc is taken, or its directory by the same rule.
[[nodiscard]] std::string choose_trust_store();

}  // namespace quorvane
