// A server that keeps its answers in memory, so that a race measures its clients.
//
//   responder FOLDER [CERTIFICATE KEY]
//
// Every file in FOLDER is one complete HTTP response.  A request that names a project
// ("projectId":"NAME") gets the file of that name, any other request the file "account".  A name
// may end in "@SIZE": the bytes then leave in writes of that size, each as a segment of its own.
// One connection at a time; plain on 127.0.0.1, or TLS on ::1 when a certificate is given.  The
// kernel chooses the port, which is printed.  Ends with its standard input.

#define _GNU_SOURCE
#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

enum { kMostAnswers = 1024, kRoom = 1 << 20, kWriteSize = 1 << 20 };

struct Answer {
    char name[256];
    char* bytes;
    size_t size;
};

struct Peer {
    int fd;
    SSL* session;  // Null in the clear.
};

static struct Answer answers[kMostAnswers];
static int answer_count;
static char room[kRoom + 1];

static void fail(const char* what) {
    perror(what);
    exit(1);
}

static void load(const char* folder) {
    DIR* const directory = opendir(folder);
    if (directory == NULL || chdir(folder) != 0) fail(folder);
    for (struct dirent* entry; (entry = readdir(directory)) != NULL;) {
        if (entry->d_name[0] == '.' || answer_count == kMostAnswers) continue;
        struct Answer* const answer = &answers[answer_count++];
        struct stat status;
        const int fd = open(entry->d_name, O_RDONLY | O_CLOEXEC);
        if (fd < 0 || fstat(fd, &status) != 0) fail(entry->d_name);
        snprintf(answer->name, sizeof answer->name, "%s", entry->d_name);
        answer->size = (size_t)status.st_size;
        answer->bytes = malloc(answer->size + 1);
        for (size_t filled = 0; filled < answer->size;) {
            const ssize_t got = read(fd, answer->bytes + filled, answer->size - filled);
            if (got <= 0) fail(entry->d_name);
            filled += (size_t)got;
        }
        close(fd);
    }
    closedir(directory);
}

static const struct Answer* find_answer(const char* name, size_t size) {
    for (int i = 0; i < answer_count; ++i) {
        if (strlen(answers[i].name) == size && memcmp(answers[i].name, name, size) == 0) {
            return &answers[i];
        }
    }
    return NULL;
}

static void give(struct Peer peer, const char* bytes, size_t size, size_t write_size) {
    while (size > 0) {
        const size_t piece = size < write_size ? size : write_size;
        const long sent = peer.session != NULL ? SSL_write(peer.session, bytes, (int)piece)
                                               : send(peer.fd, bytes, piece, MSG_NOSIGNAL);
        if (sent <= 0) return;  // The client may leave whenever it wants to.
        bytes += sent;
        size -= (size_t)sent;
    }
}

// Adds to what the room holds; false when the client is gone.
static bool take_more(struct Peer peer, size_t* filled) {
    const long got = peer.session != NULL
                         ? SSL_read(peer.session, room + *filled, (int)(kRoom - *filled))
                         : read(peer.fd, room + *filled, kRoom - *filled);
    if (got <= 0) return false;
    *filled += (size_t)got;
    room[*filled] = '\0';
    return true;
}

// Reads one request and finds out whose answer it asks for.  The project is at the beginning
// of the body; the rest is dropped.
static bool read_request(struct Peer peer, char* name, size_t name_size) {
    enum { kEnough = 256 };
    size_t filled = 0;
    const char* body = NULL;
    while (body == NULL) {
        if (filled == kRoom || !take_more(peer, &filled)) return false;
        body = strstr(room, "\r\n\r\n");
    }
    body += 4;
    const char* const length_at = strcasestr(room, "\r\nContent-Length:");
    size_t left = length_at != NULL ? strtoul(length_at + 17, NULL, 10) : 0;
    if (strcasestr(room, "\r\nExpect: 100-continue") != NULL) {
        static const char go_on[] = "HTTP/1.1 100 Continue\r\n\r\n";
        give(peer, go_on, sizeof go_on - 1, sizeof go_on);
    }
    const size_t head = (size_t)(body - room);
    const size_t enough = left < kEnough ? left : kEnough;
    while (filled - head < enough) {
        if (!take_more(peer, &filled)) return false;
    }
    snprintf(name, name_size, "account");
    const char* const project = strstr(body, "\"projectId\":");
    const char* const quote = project != NULL ? strchr(project + 12, '"') : NULL;
    if (quote != NULL) {
        snprintf(name, name_size, "%.*s", (int)strcspn(quote + 1, "\""), quote + 1);
    }
    for (left -= filled - head; left > 0; left -= filled) {
        filled = 0;
        if (!take_more(peer, &filled)) return false;
    }
    return true;
}

static void serve(struct Peer peer) {
    char name[256];
    if (!read_request(peer, name, sizeof name)) return;
    size_t write_size = kWriteSize;
    char* const at = strchr(name, '@');
    if (at != NULL) {
        write_size = strtoul(at + 1, NULL, 10);
        *at = '\0';
    }
    const struct Answer* const answer = find_answer(name, strlen(name));
    if (answer == NULL) {
        fprintf(stderr, "responder: no answer named %s\n", name);
        return;
    }
    give(peer, answer->bytes, answer->size, write_size);
}

static int listen_on(int family) {
    const int fd = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_in6 v6 = {.sin6_family = AF_INET6};
    v6.sin6_addr = in6addr_loopback;
    struct sockaddr_in v4 = {.sin_family = AF_INET};
    v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int failed = family == AF_INET ? bind(fd, (struct sockaddr*)&v4, sizeof v4)
                                         : bind(fd, (struct sockaddr*)&v6, sizeof v6);
    if (fd < 0 || failed != 0 || listen(fd, 64) != 0) fail("listen");
    socklen_t size = sizeof v6;
    if (getsockname(fd, (struct sockaddr*)&v6, &size) != 0) fail("getsockname");
    printf("%d\n", ntohs(v6.sin6_port));
    fflush(stdout);
    return fd;
}

static SSL_CTX* make_context(const char* certificate, const char* key) {
    SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
    if (context == NULL || SSL_CTX_use_certificate_chain_file(context, certificate) != 1 ||
        SSL_CTX_use_PrivateKey_file(context, key, SSL_FILETYPE_PEM) != 1) {
        fail("certificate");
    }
    return context;
}

int main(int argc, char** argv) {
    if (argc != 2 && argc != 4) {
        fputs("responder FOLDER [CERTIFICATE KEY]\n", stderr);
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    SSL_CTX* const context = argc == 4 ? make_context(argv[2], argv[3]) : NULL;
    load(argv[1]);
    const int listener = listen_on(context != NULL ? AF_INET6 : AF_INET);
    for (;;) {
        struct pollfd waiting[2] = {{.fd = listener, .events = POLLIN},
                                    {.fd = 0, .events = POLLIN}};
        if (poll(waiting, 2, -1) < 0) fail("poll");
        if (waiting[1].revents != 0) return 0;
        struct Peer peer = {.fd = accept4(listener, NULL, NULL, SOCK_CLOEXEC), .session = NULL};
        if (peer.fd < 0) continue;
        const int on = 1;
        setsockopt(peer.fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        bool ready = true;
        if (context != NULL) {
            peer.session = SSL_new(context);
            SSL_set_fd(peer.session, peer.fd);
            ready = SSL_accept(peer.session) == 1;
        }
        if (ready) serve(peer);
        if (peer.session != NULL) {
            if (ready) SSL_shutdown(peer.session);
            SSL_free(peer.session);
        }
        close(peer.fd);
    }
}
