#include "backend/refusals.h"

#include "runtime/error_response.h"
#include "runtime/log.h"
#include "runtime/redaction.h"

void refuse_permission(wms_strbuf* response, const char* key) {
    wuic_generic_error(response, "no permission to execute opcode/program.");
    controller_log(log_error, "no permission to execute opcode/program %s.", redact_uri(key).text);
}
