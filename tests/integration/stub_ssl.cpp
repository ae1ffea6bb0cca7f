// Stands in for libssl.so.3: every function writes its name to standard error and succeeds, except
// the one that STUB_FAILS names.  So each step of connecting can be made to fail.
#include <openssl/ssl.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

template <typename T>
T answer(std::string_view name, T good, T bad) {
    std::fprintf(stderr, "%.*s ", static_cast<int>(name.size()), name.data());
    const char* const failing = std::getenv("STUB_FAILS");
    return failing != nullptr && name == failing ? bad : good;
}

long object = 0;
SSL_CTX* const kNoContext = nullptr;
SSL* const kNoSession = nullptr;

}  // namespace

extern "C" {
unsigned long OpenSSL_version_num() { return answer(__func__, 1UL, 0UL); }
const SSL_METHOD* TLS_client_method() { return nullptr; }
SSL_CTX* SSL_CTX_new(const SSL_METHOD*) {
    return answer(__func__, reinterpret_cast<SSL_CTX*>(&object), kNoContext);
}
void SSL_CTX_set_verify(SSL_CTX*, int mode, SSL_verify_cb) {
    answer(mode == SSL_VERIFY_PEER ? "verify_peer" : "verify?", 0, 0);
}
int SSL_CTX_load_verify_locations(SSL_CTX*, const char*, const char*) { return 0; }
int SSL_CTX_set_default_verify_paths(SSL_CTX*) { return answer(__func__, 1, 0); }
void SSL_CTX_free(SSL_CTX*) { answer(__func__, 0, 0); }
SSL* SSL_new(SSL_CTX*) { return answer(__func__, reinterpret_cast<SSL*>(&object), kNoSession); }
long SSL_ctrl(SSL*, int command, long type, void* name) {
    std::fprintf(stderr, "%d,%ld,%s ", command, type, static_cast<char*>(name));
    return answer(__func__, 1L, 0L);
}
int SSL_set1_host(SSL*, const char*) { return answer(__func__, 1, 0); }
int SSL_set_fd(SSL*, int) { return answer(__func__, 1, 0); }
int SSL_connect(SSL*) { return answer(__func__, 1, -1); }
long SSL_get_verify_result(const SSL*) { return answer(__func__, 0L, 19L); }
int SSL_write(SSL*, const void*, int size) { return answer(__func__, size > 50 ? 50 : size, 0); }
int SSL_read(SSL*, void*, int) { return answer(__func__, 0, -1); }
int SSL_shutdown(SSL*) { return answer(__func__, 0, 0); }
void SSL_free(SSL*) { answer(__func__, 0, 0); }
}
