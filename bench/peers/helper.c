/* A controller's command helper that answers every command at once, with the bytes of a file:
 *
 *   helper SOCKET REPLY
 *
 * Some processes take connections from one socket, so that none waits for another. */
#include <arpa/inet.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

enum { processes = 8, reply_size = 65536, request_size = 65536 };

static char reply[reply_size];
static size_t reply_length;

/* Status word, length, output, and the length of a message that there is not. */
static int read_reply_file(const char* path) {
    FILE* file = fopen(path, "rb");
    if (file == NULL) return -1;
    const size_t length = fread(reply + 8, 1, sizeof reply - 12, file);
    fclose(file);
    const uint32_t word = htonl((uint32_t)length);
    memcpy(reply + 4, &word, sizeof word);
    reply_length = length + 12;
    return 0;
}

static int listen_at(const char* path) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    if (strlen(path) >= sizeof address.sun_path) return -1;
    strcpy(address.sun_path, path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    umask(0177);
    if (fd < 0 || bind(fd, (struct sockaddr*)&address, sizeof address) != 0) return -1;
    return listen(fd, 256) == 0 ? fd : -1;
}

/* Where the fields that begin at `at` end after `count` more of them; 0 while they are not whole.
 */
static size_t end_of_fields(const char* bytes, size_t length, int count) {
    size_t at = 0;
    for (; count > 0; --count) {
        uint32_t word;
        if (length - at < sizeof word) return 0;
        memcpy(&word, bytes + at, sizeof word);
        at += sizeof word;
        if (ntohl(word) > length - at) return 0;
        at += ntohl(word);
    }
    return at;
}

static void serve(int fd) {
    char request[request_size];
    size_t have = 0;
    while (end_of_fields(request, have, 4) == 0) {
        const ssize_t got = read(fd, request + have, sizeof request - have);
        if (got <= 0) return;
        have += (size_t)got;
    }
    if (send(fd, reply, reply_length, MSG_NOSIGNAL) < 0) perror("send");
}

int main(int argc, char** argv) {
    if (argc != 3 || read_reply_file(argv[2]) != 0) return 2;
    const int listener = listen_at(argv[1]);
    if (listener < 0) return 1;
    for (int i = 1; i < processes && fork() > 0;)
        ++i;
    for (;;) {
        const int fd = accept(listener, NULL, NULL);
        if (fd < 0) return 1;
        serve(fd);
        close(fd);
    }
}
