#include "dispatch/not_implemented.h"

#include <cstring>

#include "runtime/error_response.h"

int not_implemented(const char*, wms_strbuf* response, session_record*, pg_conn*, cgi*) {
    wuic_generic_error(response, "not implemented");
    return -1;
}

char* not_implemented_xml(session_record*, char*) {
    return ::strdup("<re><ERROR>not implemented</ERROR></re>");
}
