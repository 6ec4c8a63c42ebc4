/* An ordinary request in a CGI program: four connections, the session, a command, out. */
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "ordinary_request.h"

int main(void) {
    static char out[answer_size];
    PGconn* databases[database_count];
    if (setuid(0) != 0 || !open_databases(databases)) return 1;
    const long size =
        answer(databases[0], getenv("QORIN_AUTH_SESSION_ID"), getenv("QUERY_STRING"), out);
    if (size < 0) return 1;
    fwrite(out, 1, (size_t)size, stdout);
    for (int i = 0; i < database_count; ++i)
        PQfinish(databases[i]);
    return 0;
}
