// The least that a client can do: connect, send one request, read the answer to its end into
// memory. It looks at nothing and writes nothing; what it costs is the floor under every client.
//
//   bare_client PORT PATH BODY
//
// Posts BODY to the path.  Compiled twice: plainly it talks to 127.0.0.1 in the clear, with
// BARE_TLS to localhost on ::1 over OpenSSL, trusting its default places.

#include <err.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

static int connect_to(const void* address, socklen_t size) {
    const int fd =
        socket(((const struct sockaddr*)address)->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, address, size) != 0) err(1, "connect");
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd;
}

#ifdef BARE_TLS
#include <openssl/ssl.h>
static SSL* session;

static void open_connection(in_port_t port) {
    SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, NULL);
    SSL_CTX_set_default_verify_paths(context);
    session = SSL_new(context);
    SSL_set_tlsext_host_name(session, "localhost");
    SSL_set1_host(session, "localhost");
    const struct sockaddr_in6 address = {
        .sin6_family = AF_INET6, .sin6_port = port, .sin6_addr = IN6ADDR_LOOPBACK_INIT};
    SSL_set_fd(session, connect_to(&address, sizeof address));
    if (SSL_connect(session) != 1) errx(1, "SSL_connect");
}
static long send_some(const char* bytes, size_t size) {
    return SSL_write(session, bytes, (int)size);
}
static long receive_some(char* bytes, size_t size) { return SSL_read(session, bytes, (int)size); }
#else
static int connection;

static void open_connection(in_port_t port) {
    const struct sockaddr_in address = {
        .sin_family = AF_INET, .sin_port = port, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
    connection = connect_to(&address, sizeof address);
}
static long send_some(const char* bytes, size_t size) {
    return send(connection, bytes, size, MSG_NOSIGNAL);
}
static long receive_some(char* bytes, size_t size) { return read(connection, bytes, size); }
#endif

int main(int argc, char** argv) {
    if (argc != 4) errx(2, "bare_client PORT PATH BODY");
    const int size = (int)strlen(argv[3]);
    char head[1024];
    const int head_size = snprintf(head, sizeof head,
                                   "POST %s HTTP/1.1\r\nHost: localhost:%s\r\n"
                                   "Content-Type: application/json\r\nAuthorization: Bearer x\r\n"
                                   "Content-Length: %d\r\nConnection: close\r\n\r\n",
                                   argv[2], argv[1], size);
    open_connection(htons((in_port_t)atoi(argv[1])));
    if (send_some(head, (size_t)head_size) != head_size) err(1, "send");
    if (send_some(argv[3], (size_t)size) != size) err(1, "send");
    enum { kReadSize = 65536 };
    size_t capacity = kReadSize;
    size_t total = 0;
    char* answer = malloc(capacity);
    for (;;) {
        if (capacity - total < kReadSize) answer = realloc(answer, capacity *= 2);
        if (answer == NULL) err(1, "memory");
        const long got = receive_some(answer + total, kReadSize);
        if (got <= 0) break;
        total += (size_t)got;
    }
    return total > 12 ? 0 : 1;
}
