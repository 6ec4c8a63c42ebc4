// The handlers of this floor, rows of the dispatch table.
#pragma once

#include "runtime/handler.h"

// The configuration API: GET and POST below /v1/configuration. The request becomes one line for the
// CLI helper, which runs it as the session's user and answers in JSON; the answer is passed on as
// it came, and a failed exchange is an empty body. Always answers; returns 0.
request_handler exec_configuration;
