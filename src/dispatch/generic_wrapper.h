// The handler of rows whose body comes from a plain function (dispatch_row::target).
#pragma once

#include "runtime/handler.h"

// Asks for a logged-in session (unless the controller is in its factory-default state), calls the
// row's target with the unescaped query and answers with the XML text that it returns.
request_handler generic_wrapper;
