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

#ifndef QUORVANE_LINK_OPENSSL
#include <dlfcn.h>
#endif

namespace quorvane {
namespace {

/// All that is taken from OpenSSL.
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

// Process-wide: the library is loaded once, and one text is kept of the last failure.
OpenSsl openssl;
bool openssl_loaded = false;
std::string_view last_error;

#ifdef QUORVANE_LINK_OPENSSL
bool fill_table(OpenSsl& table) {
#define QUORVANE_TAKE(name) table.name = &::name;
    QUORVANE_OPENSSL_FUNCTIONS(QUORVANE_TAKE)
#undef QUORVANE_TAKE
    return true;
}
#else
template <typename Function>
bool find_function(void* library, const char* name, Function*& function) {
    function = reinterpret_cast<Function*>(::dlsym(library, name));
    return function != nullptr;
}

bool fill_table(OpenSsl& table) {
    // dlsym(3) searches what a library depends on too, so libcrypto.so.3 is found through it.  It
    // stays loaded: the process ends soon, and its exit handlers belong to it.
    void* const library = ::dlopen("libssl.so.3", RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return false;
    bool found = true;
#define QUORVANE_TAKE(name) found = found && find_function(library, #name, table.name);
    QUORVANE_OPENSSL_FUNCTIONS(QUORVANE_TAKE)
#undef QUORVANE_TAKE
    return found;
}
#endif

bool load_openssl() {
    if (!openssl_loaded) openssl_loaded = fill_table(openssl);
    return openssl_loaded && openssl.OpenSSL_version_num() >= 1;
}

bool settings_in_range(const TlsSettings& settings) {
    return settings.timeout_ms >= 1 && settings.timeout_ms <= kMaxReadyWaitMs &&
           settings.port >= 1 && settings.port <= kMaxPort && !settings.host.empty();
}

ConnectResult connect_tcp(const TlsSettings& settings) {
    const std::int64_t timeout_ms = std::min(settings.timeout_ms, kMaxSocketWaitMs);
    ConnectResult tcp = settings.host == "localhost"
                            ? connect_ipv6("::1", settings.port, timeout_ms)
                            : connect_host(settings.host, settings.port, timeout_ms);
    // OpenSSL waits inside the socket calls, so the socket itself has to bound them.
    tcp.ok = tcp.ok && set_socket_timeouts(tcp.fd.get(), settings.timeout_ms);
    return tcp;
}

bool load_trust_store(ssl_ctx_st* context, const std::string& file) {
    if (file.empty()) return openssl.SSL_CTX_set_default_verify_paths(context) == 1;
    return openssl.SSL_CTX_load_verify_locations(context, file.c_str(), nullptr) == 1;
}

/// The name as certificates have it.  A lone dot stays: to OpenSSL no name means no check.
std::string certified_name(std::string host) {
    if (host.size() > 1 && host.ends_with('.')) host.pop_back();
    return host;
}

bool set_server_name(ssl_st* session, std::string& name) {
    return openssl.SSL_ctrl(session, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                            name.data()) == 1;
}

// signal(7): on a socket with a time limit a process that was stopped and continued gets EINTR,
// here and in the calls below; OpenSSL then takes the same call once more.
int handshake(ssl_st* session) {
    return kernel::retry_interrupted([session] { return openssl.SSL_connect(session); });
}

std::nullopt_t failed(std::string_view message) {
    last_error = message;
    return std::nullopt;
}

}  // namespace

void FreeTlsContext::operator()(ssl_ctx_st* context) const { openssl.SSL_CTX_free(context); }

void FreeTlsSession::operator()(ssl_st* session) const { openssl.SSL_free(session); }

TlsConnection::TlsConnection(FdHandle fd, TlsContext context, TlsSession session,
                             std::int64_t timeout_ms)
    : fd_(std::move(fd)),
      context_(std::move(context)),
      session_(std::move(session)),
      timeout_ms_(timeout_ms) {}

TlsConnection::~TlsConnection() { close(); }

bool TlsConnection::wait_writable() const {
    return wait_ready(fd_.get(), POLLOUT, timeout_ms_) > 0;
}

void TlsConnection::close() {
    if (session_ == nullptr) return;
    // A peer that reads nothing must not hold up the farewell.
    static_cast<void>(set_non_blocking(fd_.get()));
    openssl.SSL_shutdown(session_.get());
    session_.reset();
    context_.reset();
    fd_.close();
}

std::optional<TlsConnection> tls_connect(TlsSettings settings) {
    if (!settings_in_range(settings)) return failed("TLS failed at configuration");
    if (!load_openssl()) return failed("TLS failed at configuration");
    ConnectResult tcp = connect_tcp(settings);
    if (!tcp.ok) return failed("TLS failed at tcp_connect");

    TlsContext context(openssl.SSL_CTX_new(openssl.TLS_client_method()));
    if (context == nullptr) return failed("TLS failed at context_create");
    openssl.SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    if (!load_trust_store(context.get(), settings.trust_store_file)) {
        return failed("TLS failed at trust_store");
    }
    TlsSession session(openssl.SSL_new(context.get()));
    if (session == nullptr) return failed("TLS failed at session_create");
    std::string name = certified_name(std::move(settings.host));
    if (!set_server_name(session.get(), name)) return failed("TLS failed at server_name");
    if (openssl.SSL_set1_host(session.get(), name.c_str()) != 1) {
        return failed("TLS failed at host_verification_setup");
    }
    if (openssl.SSL_set_fd(session.get(), tcp.fd.get()) != 1) {
        return failed("TLS failed at socket_attach");
    }
    if (handshake(session.get()) != 1) return failed("TLS failed at handshake");
    // The verify mode has already stopped a bad chain; this holds even if that ever changed.
    if (openssl.SSL_get_verify_result(session.get()) != X509_V_OK) {
        return failed("TLS failed at certificate_verification");
    }
    last_error = {};
    return TlsConnection(std::move(tcp.fd), std::move(context), std::move(session),
                         settings.timeout_ms);
}

bool tls_write(TlsConnection& connection, std::string_view bytes) {
    // One record at a time, each after a wait of our own: a writable socket has room for one, and
    // SO_SNDTIMEO alone would count again after every partial write inside SSL_write.
    constexpr std::size_t kRecordBytes = 16'384;
    while (!bytes.empty()) {
        if (!connection.wait_writable()) return false;
        const std::size_t size = std::min(bytes.size(), kRecordBytes);
        const int written = kernel::retry_interrupted([&connection, bytes, size] {
            return openssl.SSL_write(connection.session(), bytes.data(), static_cast<int>(size));
        });
        if (written <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

ReceiveResult tls_read(TlsConnection& connection, ByteBuffer& into, std::int64_t max_bytes) {
    ReceiveResult result;
    const int room = static_cast<int>(std::clamp<std::int64_t>(max_bytes, 1, kMaxReceiveBytes));
    char* const spare = into.spare(static_cast<std::size_t>(room));
    const int count = kernel::retry_interrupted(
        [&connection, spare, room] { return openssl.SSL_read(connection.session(), spare, room); });
    result.end_of_stream = count == 0;
    // socket(7), SO_RCVTIMEO: a receive that waited its limit out fails with EAGAIN.
    result.timed_out = count == -EAGAIN;
    if (count < 0 && !result.timed_out) result.error = count;
    if (count > 0) {
        into.commit(static_cast<std::size_t>(count));
        result.count = count;
    }
    return result;
}

void tls_close(TlsConnection& connection) { connection.close(); }

std::string_view last_tls_error() { return last_error; }

}  // namespace quorvane
