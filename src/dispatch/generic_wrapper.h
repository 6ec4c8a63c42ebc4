// The handler of rows whose body comes from a plain function (dispatch_row::target).
#pragma once

#include "runtime/handler.h"

// Serves callers with a session; on a factory-default controller, anyone. Hands the URL-decoded
// query to the row's target and answers with the XML that it returns, or with an error when that is
// null.
request_handler generic_wrapper;
