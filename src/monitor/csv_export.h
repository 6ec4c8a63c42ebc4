// Tables that the browser has put together, as downloads.
#pragma once

#include "runtime/handler.h"

// Sends the form field "operand" back as a file, every byte of it; an empty one when it is absent.
// `type` 1 makes the browser save it whatever it holds, any other shows it as a table. Returns 0;
// -1, the response empty, when memory runs out.
request_handler plog_export_csv;
