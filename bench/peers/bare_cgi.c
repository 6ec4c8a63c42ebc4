/* A CGI program that does nothing: what the HTTP server and starting any program cost. */
#include <stdio.h>

int main(void) {
    puts("Content-Type: text/xml\r\n\r\n<re></re>");
    return 0;
}
