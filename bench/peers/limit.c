// The physical limit: the daemon's cycle with raw sockets and the same work on files, flushes and
// all, but without a look at the JSON. It believes what it gets; where something is missing, it
// ends.
//
//   bench-limit        enrolled by the same file as the daemon
#define _GNU_SOURCE
#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

struct bytes {
    char* data;
    size_t size;
};

enum { pathSize = 512, textSize = 1024 };

static const char setup[] = "/private/tmp/dev.orvane.setup";
static char orvane[256];

static int connection = -1;
static SSL* ssl;

static void fail(const char* what) {
    perror(what);
    exit(1);
}

// ---- Files

static void pathIn(char* path, const char* directory, const char* name, const char* suffix) {
    (void)snprintf(path, pathSize, "%s/%s%s", directory, name, suffix);
}

static struct bytes readFile(const char* directory, const char* name) {
    char path[pathSize];
    pathIn(path, directory, name, "");
    struct bytes content = {NULL, 0};
    const int file = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat status;
    if (file < 0 || fstat(file, &status) != 0) {
        return content;
    }
    const size_t room = (size_t)status.st_size + 1;
    content.data = malloc(room);
    ssize_t count = 0;
    while ((count = read(file, content.data + content.size, room - content.size)) > 0) {
        content.size += (size_t)count;
    }
    close(file);
    return content;
}

static void flushDirectory(const char* directory) {
    const int handle = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    (void)fsync(handle);
    close(handle);
}

static void writeAtomically(const char* directory, const char* name, const char* suffix,
                            struct bytes content) {
    char path[pathSize];
    char scratch[pathSize];
    pathIn(path, directory, name, suffix);
    pathIn(scratch, directory, name, ".scratch");
    const int file = open(scratch, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    for (size_t done = 0; done < content.size;) {
        const ssize_t count = write(file, content.data + done, content.size - done);
        if (count <= 0) {
            fail(path);
        }
        done += (size_t)count;
    }
    (void)fsync(file);
    close(file);
    (void)rename(scratch, path);
    flushDirectory(directory);
}

static void replaceFile(const char* name, struct bytes content) {
    char path[pathSize];
    char temporary[pathSize];
    pathIn(path, orvane, name, "");
    pathIn(temporary, orvane, name, ".tmp");
    writeAtomically(orvane, name, ".tmp", content);
    (void)unlink(path);
    (void)rename(temporary, path);
    flushDirectory(orvane);
}

static void record(const char* url, int status, size_t size) {
    char directory[pathSize];
    char path[pathSize];
    char line[textSize];
    char date[32];
    struct timespec now;
    struct tm utc;
    pathIn(directory, orvane, "logs", "");
    pathIn(path, orvane, "logs/policy-daemon.activity.jsonl", "");
    (void)mkdir(directory, 0777);
    (void)clock_gettime(CLOCK_REALTIME, &now);
    (void)strftime(date, sizeof date, "%FT%T", gmtime_r(&now.tv_sec, &utc));
    const int length =
        snprintf(line, sizeof line,
                 "{\"bytes\":%zu,\"daemon\":\"policy-daemon\",\"method\":\"GET\",\"ms\":0,"
                 "\"pid\":%d,\"status\":%d,\"ts\":\"%s.%03ldZ\",\"url\":\"%s\"}",
                 size, getpid(), status, date, now.tv_nsec / 1000000, url);
    const int log = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (write(log, line, (size_t)length) < 0 || write(log, "\n", 1) < 0) {
        fail(path);
    }
    close(log);
}

// ---- Network

static void connectTo(const char* host, const char* port, int secure) {
    const struct addrinfo wanted = {.ai_family = AF_INET, .ai_socktype = SOCK_STREAM};
    struct addrinfo* address = NULL;
    if (getaddrinfo(host, port, &wanted, &address) != 0) {
        fail(host);
    }
    connection = socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(connection, address->ai_addr, address->ai_addrlen) != 0) {
        fail(host);
    }
    const int yes = 1;
    (void)setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    if (secure) {
        SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
        (void)SSL_CTX_load_verify_dir(context, "/etc/ssl/certs");
        SSL_CTX_set_verify(context, SSL_VERIFY_PEER, NULL);
        ssl = SSL_new(context);
        (void)SSL_set1_host(ssl, host);
        (void)SSL_set_fd(ssl, connection);
        if (SSL_connect(ssl) != 1) {
            fail("TLS");
        }
    }
}

static size_t receive(char* data, size_t size) {
    const ssize_t count = ssl ? SSL_read(ssl, data, (int)size) : recv(connection, data, size, 0);
    if (count <= 0) {
        exit(0);
    }
    return (size_t)count;
}

// GET on the one connection: the status, and the body if there is one.
static int get(const char* base, const char* host, const char* path, const char* more,
               struct bytes* body) {
    char request[textSize];
    char head[8192];
    const int length =
        snprintf(request, sizeof request,
                 "GET %s%s HTTP/1.1\r\nHost: %s\r\nX-Orv-Key: key-0123456789abcdef\r\n%s\r\n", base,
                 path, host, more);
    if ((ssl ? SSL_write(ssl, request, length) : send(connection, request, (size_t)length, 0)) !=
        length) {
        fail("send");
    }
    size_t got = 0;
    char* end = NULL;
    while (end == NULL) {
        got += receive(head + got, sizeof head - 1 - got);
        head[got] = '\0';
        end = strstr(head, "\r\n\r\n");
    }
    const char* const announced = strstr(head, "Content-Length: ");
    body->size = announced != NULL && announced < end ? strtoul(announced + 16, NULL, 10) : 0;
    body->data = malloc(body->size + 1);
    size_t have = got - (size_t)(end + 4 - head);
    memcpy(body->data, end + 4, have);
    while (have < body->size) {
        have += receive(body->data + have, body->size - have);
    }
    const int status = atoi(head + 9);
    record(path, status, body->size);
    return status;
}

// ---- The cycle

// The text between `before` and `after`.
static struct bytes between(struct bytes text, const char* before, const char* after) {
    char* const start =
        (char*)memmem(text.data, text.size, before, strlen(before)) + strlen(before);
    const size_t rest = text.size - (size_t)(start - text.data);
    char* const end = memmem(start, rest, after, strlen(after));
    return (struct bytes){start, (size_t)(end - start)};
}

static void derive(void) {
    const struct bytes policy = readFile(orvane, "policy.json");
    const struct bytes hosts = between(policy, "\"hosts\":[", "]");
    struct bytes wanted = {malloc(hosts.size + textSize), 0};
    wanted.size = (size_t)sprintf(wanted.data, "{\"enabled\":true,\"intercept_hosts\":[");
    memcpy(wanted.data + wanted.size, hosts.data, hosts.size);
    wanted.size += hosts.size;
    wanted.size += (size_t)sprintf(wanted.data + wanted.size, "],\"suppress_ech\":false}");
    const struct bytes existing = readFile(setup, "capture-policy.json");
    if (existing.size != wanted.size || memcmp(existing.data, wanted.data, wanted.size) != 0) {
        char path[pathSize];
        pathIn(path, setup, "capture-policy.json", "");
        writeAtomically(setup, "capture-policy.json", "", wanted);
        (void)chmod(path, 0644);
    }
    free(policy.data);
    free(wanted.data);
    free(existing.data);
}

static void store(struct bytes body, const char* base, const char* host) {
    char text[textSize];
    struct bytes effective;
    const struct bytes etag = between(body, "\"etag\":\"", "\"");
    replaceFile("policy.json", body);
    const int length =
        snprintf(text, sizeof text, "{\"etag\":\"%.*s\"}", (int)etag.size, etag.data);
    replaceFile("policy-etag.json", (struct bytes){text, (size_t)length});
    if (get(base, host, "/api/orvane/v1/guard/effective/", "", &effective) == 200) {
        replaceFile("guard-effective.json", effective);
    }
    free(effective.data);
}

static void cycle(void) {
    char host[256];
    char port[16];
    char base[256] = "";
    char more[textSize] = "Accept: application/json\r\n";
    const struct bytes enrollment = readFile(setup, "enroll-config.json");
    const struct bytes stored = readFile(orvane, "policy-etag.json");
    const struct bytes url = between(enrollment, "\"api_url\":\"", "\"");
    const int secure = strncmp(url.data, "https", 5) == 0;
    (void)sscanf(url.data + (secure ? 8 : 7), "%255[^:]:%15[0-9]%255[^\"]", host, port, base);
    if (stored.data != NULL) {
        const struct bytes etag = between(stored, "\"etag\":\"", "\"");
        (void)snprintf(more, sizeof more, "Accept: application/json\r\nIf-None-Match: \"%.*s\"\r\n",
                       (int)etag.size, etag.data);
    }
    if (connection < 0) {
        connectTo(host, port, secure);
    }
    struct bytes body;
    if (get(base, host, "/api/orvane/v1/connect/guard-config/?wait=300", more, &body) == 200) {
        store(body, base, host);
    }
    free(body.data);
    free(enrollment.data);
    free(stored.data);
    derive();
}

int main(void) {
    (void)snprintf(orvane, sizeof orvane, "%s/.orvane", getenv("HOME"));
    for (;;) {
        cycle();
    }
}
