// The least that a client can do: connect, send one request, read the answer to its end into
// memory. It looks at nothing and writes nothing; what it costs is the floor under every client.
//
//   bare_client PORT PATH BODY [FILE]
//
// Posts BODY, or the contents of FILE, to the path.  Compiled twice: plainly it talks to 127.0.0.1
// in the clear, with BARE_TLS to localhost on ::1 over OpenSSL, trusting its default places.

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef BARE_TLS
#include <openssl/ssl.h>
#endif

static void fail(const char* what) {
    perror(what);
    exit(1);
}

static int connect_to(int family, int port) {
    const int fd = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) fail("socket");
    struct sockaddr_in v4 = {.sin_family = AF_INET, .sin_port = htons((unsigned short)port)};
    v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    struct sockaddr_in6 v6 = {.sin6_family = AF_INET6, .sin6_port = htons((unsigned short)port)};
    v6.sin6_addr = in6addr_loopback;
    const int failed = family == AF_INET ? connect(fd, (struct sockaddr*)&v4, sizeof v4)
                                         : connect(fd, (struct sockaddr*)&v6, sizeof v6);
    if (failed != 0) fail("connect");
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd;
}

#ifdef BARE_TLS
static SSL* session;

static void open_connection(int port) {
    SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, NULL);
    SSL_CTX_set_default_verify_paths(context);
    session = SSL_new(context);
    SSL_set_tlsext_host_name(session, "localhost");
    SSL_set1_host(session, "localhost");
    SSL_set_fd(session, connect_to(AF_INET6, port));
    if (SSL_connect(session) != 1) fail("SSL_connect");
}
static long send_some(const char* bytes, size_t size) {
    return SSL_write(session, bytes, (int)size);
}
static long receive_some(char* bytes, size_t size) { return SSL_read(session, bytes, (int)size); }
#else
static int connection;

static void open_connection(int port) { connection = connect_to(AF_INET, port); }
static long send_some(const char* bytes, size_t size) {
    return send(connection, bytes, size, MSG_NOSIGNAL);
}
static long receive_some(char* bytes, size_t size) { return read(connection, bytes, size); }
#endif

static void send_all(const char* bytes, size_t size) {
    while (size > 0) {
        const long sent = send_some(bytes, size);
        if (sent <= 0) fail("send");
        bytes += sent;
        size -= (size_t)sent;
    }
}

static char* read_file(const char* path, size_t* size) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    struct stat status;
    if (fd < 0 || fstat(fd, &status) != 0) fail(path);
    *size = (size_t)status.st_size;
    char* const bytes = malloc(*size + 1);
    size_t filled = 0;
    while (filled < *size) {
        const ssize_t got = read(fd, bytes + filled, *size - filled);
        if (got <= 0) fail(path);
        filled += (size_t)got;
    }
    close(fd);
    return bytes;
}

int main(int argc, char** argv) {
    if (argc < 4) {
        fputs("bare_client PORT PATH BODY [FILE]\n", stderr);
        return 2;
    }
    const char* body = argv[3];
    size_t size = strlen(body);
    if (argc > 4) body = read_file(argv[4], &size);
    char head[1024];
    const int head_size = snprintf(head, sizeof head,
                                   "POST %s HTTP/1.1\r\nHost: localhost:%s\r\n"
                                   "Content-Type: application/json\r\nAuthorization: Bearer x\r\n"
                                   "Content-Length: %zu\r\nConnection: close\r\n\r\n",
                                   argv[2], argv[1], size);
    open_connection(atoi(argv[1]));
    send_all(head, (size_t)head_size);
    send_all(body, size);
    enum { kReadSize = 65536 };
    size_t capacity = kReadSize;
    size_t total = 0;
    char* answer = malloc(capacity);
    for (;;) {
        if (capacity - total < kReadSize) answer = realloc(answer, capacity *= 2);
        if (answer == NULL) fail("memory");
        const long got = receive_some(answer + total, kReadSize);
        if (got <= 0) break;
        total += (size_t)got;
    }
    return total > 12 ? 0 : 1;
}
