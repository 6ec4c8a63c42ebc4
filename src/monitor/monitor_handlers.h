// Handlers that fill the browser's monitoring screens.
#pragma once

#include "runtime/handler.h"

// The dashboard in one document: a `cli` element for each item of the view (summary_items.h). The
// form field "operand" may ask for the controller's view. Returns 0; -1 without a connection to the
// database of events, the document then ending before the item that needs it.
request_handler wuic_get_monitor_summary_data;

// The replies of the role and policy commands as they came, a `result` element each. Roles and
// access lists are looked up one by one: up to 4,096 of a list, and none whose name is longer than
// 127 bytes or holds an apostrophe or a control byte, which could end the quoted name in the
// command. Returns 0.
request_handler wuic_get_role_policy_raw;
