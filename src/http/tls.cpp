#include "http/tls.h"

#include <openssl/crypto.h>
#include <openssl/ssl.h>
#include <openssl/tls1.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "dns/connect_host.h"
#include "net/address.h"
#include "support/clock.h"

#ifndef QUORVANE_LINK_OPENSSL
#include <dlfcn.h>
#endif

namespace quorvane {
namespace {

// Every function that is taken from OpenSSL.
#define QUORVANE_OPENSSL_FUNCTIONS(USE)   \
    USE(OpenSSL_version_num)              \
    USE(TLS_client_method)                \
    USE(SSL_CTX_new)                      \
    USE(SSL_CTX_set_verify)               \
    USE(SSL_CTX_load_verify_locations)    \
    USE(SSL_CTX_set_default_verify_paths) \
    USE(SSL_CTX_free)                     \
    USE(SSL_new)                          \
    USE(SSL_ctrl)                         \
    USE(SSL_set1_host)                    \
    USE(SSL_set_fd)                       \
    USE(SSL_connect)                      \
    USE(SSL_get_verify_result)            \
    USE(SSL_write)                        \
    USE(SSL_read)                         \
    USE(SSL_shutdown)                     \
    USE(SSL_free)

struct OpenSsl {
// NOLINTNEXTLINE(bugprone-macro-parentheses): a name is declared, nothing is computed.
#define QUORVANE_FIELD(name) decltype(&::name) name = nullptr;
    QUORVANE_OPENSSL_FUNCTIONS(QUORVANE_FIELD)
#undef QUORVANE_FIELD
};

// Process-wide: the library is loaded once, and the text of the last failure is kept.
OpenSsl openssl;
std::string_view last_error;

bool fill_table() {
#ifdef QUORVANE_LINK_OPENSSL
#define QUORVANE_TAKE(name) openssl.name = &::name;
#else
    // dlsym(3) also searches the libraries that this one depends on, so it finds libcrypto.so.3.
    // Both stay loaded: the process ends soon, and their exit handlers belong to them.
    void* const library = ::dlopen("libssl.so.3", RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return false;
#define QUORVANE_TAKE(name)                                                           \
    openssl.name = reinterpret_cast<decltype(openssl.name)>(::dlsym(library, #name)); \
    if (openssl.name == nullptr) return false;
#endif
    QUORVANE_OPENSSL_FUNCTIONS(QUORVANE_TAKE)
#undef QUORVANE_TAKE
    return true;
}

bool load_openssl() {
    static const bool loaded = fill_table();
    // The version does not matter: that the call returns proves that the table leads into OpenSSL.
    return loaded && openssl.OpenSSL_version_num() >= 1;
}

bool settings_in_range(const TlsSettings& settings) {
    return settings.timeout_ms >= 1 && settings.timeout_ms <= kMaxReadyWaitMs &&
           settings.port >= 1 && settings.port <= kMaxPort && !settings.host.empty();
}

std::optional<FdHandle> connect_tcp(const TlsSettings& settings) {
    const std::int64_t timeout_ms = std::min(settings.timeout_ms, kMaxSocketWaitMs);
    ConnectResult tcp = settings.host == kLocalhost
                            ? connect_ipv6(kLoopbackIpv6, settings.port, timeout_ms)
                            : connect_host(settings.host, settings.port, timeout_ms);
    // OpenSSL waits inside the socket calls, so the socket itself has to limit them.
    if (!tcp.ok || !set_socket_timeouts(tcp.fd.get(), settings.timeout_ms)) return std::nullopt;
    return std::move(tcp.fd);
}

bool load_trust_store(ssl_ctx_st* context, const std::string& file) {
    if (file.empty()) return openssl.SSL_CTX_set_default_verify_paths(context) == 1;
    return openssl.SSL_CTX_load_verify_locations(context, file.c_str(), nullptr) == 1;
}

// The name as certificates have it.  A lone dot stays: an empty name would turn the check off.
std::string certified_name(std::string host) {
    if (host.size() > 1 && host.ends_with('.')) host.pop_back();
    return host;
}

std::nullopt_t tls_failed(std::string_view message) {
    last_error = message;
    return std::nullopt;
}

// Runs a call of OpenSSL that may wait, again while a signal interrupts it: signal(7), a socket
// call with a time limit fails with EINTR in a process that was stopped and continued.  OpenSSL
// accepts the same call once more.  The time limit counts from the first, so that a process that is
// stopped again and again still ends; the last try takes what has arrived meanwhile.
template <typename Operation>
int call_openssl(int fd, std::int64_t timeout_ms, const Operation& operation) {
    const std::int64_t deadline_ms = monotonic_ms() + timeout_ms;
    int result = kernel::foreign_call(operation);
    if (result != -EINTR) return result;
    while (result == -EINTR) {
        const std::int64_t left_ms = std::max<std::int64_t>(deadline_ms - monotonic_ms(), 1);
        if (!set_socket_timeouts(fd, left_ms)) break;
        result = kernel::foreign_call(operation);
    }
    return set_socket_timeouts(fd, timeout_ms) ? result : -EIO;
}

}  // namespace

void FreeTls::operator()(ssl_ctx_st* context) const { openssl.SSL_CTX_free(context); }

void FreeTls::operator()(ssl_st* session) const { openssl.SSL_free(session); }

std::optional<TlsConnection> tls_connect(TlsSettings settings) {
    if (!settings_in_range(settings)) return tls_failed("TLS failed at configuration");
    if (!load_openssl()) return tls_failed("TLS failed at configuration");
    std::optional<FdHandle> fd = connect_tcp(settings);
    if (!fd) return tls_failed("TLS failed at tcp_connect");

    TlsContext context(openssl.SSL_CTX_new(openssl.TLS_client_method()));
    if (context == nullptr) return tls_failed("TLS failed at context_create");
    openssl.SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    if (!load_trust_store(context.get(), settings.trust_store_file)) {
        return tls_failed("TLS failed at trust_store");
    }
    TlsSession session(openssl.SSL_new(context.get()));
    if (session == nullptr) return tls_failed("TLS failed at session_create");
    std::string name = certified_name(std::move(settings.host));
    if (openssl.SSL_ctrl(session.get(), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                         name.data()) != 1) {
        return tls_failed("TLS failed at server_name");
    }
    if (openssl.SSL_set1_host(session.get(), name.c_str()) != 1) {
        return tls_failed("TLS failed at host_verification_setup");
    }
    if (openssl.SSL_set_fd(session.get(), fd->get()) != 1) {
        return tls_failed("TLS failed at socket_attach");
    }
    const int connected = call_openssl(fd->get(), settings.timeout_ms,
                                       [&session] { return openssl.SSL_connect(session.get()); });
    if (connected != 1) return tls_failed("TLS failed at handshake");
    // The verify mode has already stopped a bad chain; this check holds even if that changes.
    if (openssl.SSL_get_verify_result(session.get()) != X509_V_OK) {
        return tls_failed("TLS failed at certificate_verification");
    }
    last_error = {};
    return TlsConnection{std::move(*fd), std::move(context), std::move(session),
                         settings.timeout_ms};
}

bool tls_write(TlsConnection& connection, std::string_view bytes) {
    // One record at a time, each after a wait of our own: a writable socket has space for one, and
    // SO_SNDTIMEO alone would count again after every partial write inside SSL_write.
    constexpr std::size_t kMaxRecordBytes = 16'384;
    while (!bytes.empty()) {
        if (wait_ready(connection.fd.get(), POLLOUT, connection.timeout_ms) <= 0) return false;
        const std::string_view record = bytes.substr(0, kMaxRecordBytes);
        const int written =
            call_openssl(connection.fd.get(), connection.timeout_ms, [&connection, record] {
                return openssl.SSL_write(connection.session.get(), record.data(),
                                         static_cast<int>(record.size()));
            });
        if (written <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

ReceiveResult tls_read(TlsConnection& connection, ByteBuffer& into, std::int64_t max_bytes) {
    const int size = static_cast<int>(std::clamp<std::int64_t>(max_bytes, 1, kMaxReceiveBytes));
    char* const spare = into.spare(static_cast<std::size_t>(size));
    const int received_bytes =
        call_openssl(connection.fd.get(), connection.timeout_ms, [&connection, spare, size] {
            return openssl.SSL_read(connection.session.get(), spare, size);
        });
    // socket(7), SO_RCVTIMEO: a receive that waited for all of its limit fails with EAGAIN.
    if (received_bytes == -EAGAIN) return {.timed_out = true};
    if (received_bytes < 0) return {.error = received_bytes};
    into.commit(static_cast<std::size_t>(received_bytes));
    return {.received_bytes = received_bytes, .end_of_stream = received_bytes == 0};
}

void tls_close(TlsConnection connection) {
    // In blocking mode a peer that reads nothing would delay the end.
    static_cast<void>(set_non_blocking(connection.fd.get()));
    openssl.SSL_shutdown(connection.session.get());
}

std::string_view last_tls_error() { return last_error; }

}  // namespace quorvane
