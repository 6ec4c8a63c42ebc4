/* A FastCGI program that does nothing: what the HTTP server and the protocol cost. */
#include <fcgiapp.h>

int main(void) {
    FCGX_Request request;
    FCGX_Init();
    FCGX_InitRequest(&request, 0, 0);
    while (FCGX_Accept_r(&request) == 0)
        FCGX_PutS("Content-Type: text/xml\r\n\r\n<re></re>\n", request.out);
    return 0;
}
