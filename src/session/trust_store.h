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
/// - the certificates of the file and the files that the directory leads to are of the same sizes,
///   one for one.  A file counts if everybody may read it and its name is one by which OpenSSL
///   finds it.
///
/// Contents are not compared, because reading them is the cost to be saved.  A directory that has
/// more than the file is in doubt, too: one to spare could make up for a certificate that only the
/// file has, or answer for a subject for which OpenSSL would ask the file alone.  In doubt the file
/// is read: that takes longer, and trusts as OpenSSL does.
///
/// When the user has set one of the two variables, even to the empty text, nothing is decided; nor
/// with LD_LIBRARY_PATH, which may name an OpenSSL with other places.
///
/// A build that contains OpenSSL (QUORVANE_SEARCH_TRUST_STORE) may run on a system that keeps its
/// certificates elsewhere: when neither of OpenSSL's own places exists, the first existing file of
/// trust_places.inc is taken, or its directory by the same rule.
[[nodiscard]] std::string choose_trust_store();

}  // namespace quorvane
