/* An ordinary request in a FastCGI program: the four connections stay open. */
#include <fcgiapp.h>

#include "ordinary_request.h"

int main(void) {
    static char out[answer_size];
    PGconn* databases[database_count];
    FCGX_Request request;
    if (!open_databases(databases) || FCGX_Init() != 0) return 1;
    FCGX_InitRequest(&request, 0, 0);
    while (FCGX_Accept_r(&request) == 0) {
        const long size = answer(databases[0], FCGX_GetParam("QORIN_AUTH_SESSION_ID", request.envp),
                                 FCGX_GetParam("QUERY_STRING", request.envp), out);
        if (size < 0)
            FCGX_PutS("Status: 500\r\n\r\n", request.out);
        else
            FCGX_PutStr(out, (int)size, request.out);
    }
    return 0;
}
