#include "ordinary_request.h"

#include <arpa/inet.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

static const char* const databases_opened[database_count] = {
    "dbname=wms user=root",
    "dbname=gapdb user=root",
    "dbname=cfgmdb user=root",
    "dbname=userdbv3 user=root",
};

bool open_databases(PGconn* databases[database_count]) {
    for (int i = 0; i < database_count; ++i) {
        databases[i] = PQconnectdb(databases_opened[i]);
        if (PQstatus(databases[i]) != CONNECTION_OK) {
            fprintf(stderr, "%s", PQerrorMessage(databases[i]));
            return false;
        }
    }
    return true;
}

PGresult* find_session(PGconn* database, const char* sid) {
    char escaped[128], text[512];
    if (strlen(sid) * 2 >= sizeof escaped) return NULL;
    PQescapeStringConn(database, escaped, sid, strlen(sid), NULL);
    snprintf(text, sizeof text,
             "SELECT ip, _user, role, extract(epoch FROM modified_time), "
             "extract(epoch FROM created_time), admin, path FROM http_session WHERE sid = '%s'",
             escaped);
    PGresult* rows = PQexec(database, text);
    if (PQresultStatus(rows) == PGRES_TUPLES_OK && PQntuples(rows) == 1) return rows;
    PQclear(rows);
    return NULL;
}

static int connect_helper(void) {
    const struct sockaddr_un address = {AF_UNIX, "/tmp/cli-helper.sock"};
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (connect(fd, (const struct sockaddr*)&address, sizeof address) == 0) return fd;
    close(fd);
    return -1;
}

/* Each field is its length and its bytes; all go out in one call. */
static bool send_fields(int fd, const char* const fields[4]) {
    uint32_t lengths[4];
    struct iovec pieces[8];
    size_t size = 0;
    for (int i = 0; i < 4; ++i) {
        const size_t length = strlen(fields[i]);
        lengths[i] = htonl((uint32_t)length);
        pieces[2 * i] = (struct iovec){&lengths[i], sizeof lengths[i]};
        pieces[2 * i + 1] = (struct iovec){(void*)fields[i], length};
        size += sizeof lengths[i] + length;
    }
    return writev(fd, pieces, 8) == (ssize_t)size;
}

static bool read_all(int fd, void* to, size_t size) {
    for (size_t have = 0; have < size;) {
        const ssize_t got = read(fd, (char*)to + have, size - have);
        if (got <= 0) return false;
        have += (size_t)got;
    }
    return true;
}

/* Status and length of the output; the output and the length of the message; the message. */
static long read_reply(int fd, char* out, size_t size) {
    uint32_t head[2], word;
    char message[1024];
    if (!read_all(fd, head, sizeof head)) return -1;
    const uint32_t length = ntohl(head[1]);
    if (length > size - sizeof word || !read_all(fd, out, length + sizeof word)) return -1;
    memcpy(&word, out + length, sizeof word);
    if (ntohl(word) >= sizeof message || !read_all(fd, message, ntohl(word))) return -1;
    return (long)length;
}

long exchange(const char* const fields[4], char* out, size_t size) {
    const int fd = connect_helper();
    if (fd < 0) return -1;
    const long length = send_fields(fd, fields) ? read_reply(fd, out, size) : -1;
    close(fd);
    return length;
}

/* The first field of the query, with its escapes decoded. */
static bool command_of(const char* query, char* out, size_t size) {
    size_t length = 0;
    for (const char* from = query; *from != '\0' && *from != '&'; ++from) {
        if (length + 1 == size) return false;
        out[length++] = *from == '+' ? ' ' : *from;
        unsigned byte;
        if (*from != '%' || sscanf(from + 1, "%2x", &byte) != 1) continue;
        out[length - 1] = (char)byte;
        from += 2;
    }
    out[length] = '\0';
    return length > 0;
}

long answer(PGconn* database, const char* sid, const char* query, char out[answer_size]) {
    static const char header[] = "Content-Type: text/xml\r\nExpires: 0\r\n\r\n";
    const size_t head = sizeof header - 1;
    char command[1024];
    if (sid == NULL || query == NULL || !command_of(query, command, sizeof command)) return -1;
    PGresult* session = find_session(database, sid);
    if (session == NULL) return -1;
    const char* const fields[4] = {PQgetvalue(session, 0, 1), PQgetvalue(session, 0, 0), sid,
                                   command};
    memcpy(out, header, head);
    const long length = exchange(fields, out + head, answer_size - head);
    PQclear(session);
    return length < 0 ? -1 : (long)head + length;
}
