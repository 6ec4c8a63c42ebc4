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

// A search of the access points in a document, over a connection of its own to the database gapdb.
// Form fields: `class` ("amii" air monitors, "probes", "straps", "allmesh"; else nothing is found),
// filters (`apgroup`, `ip`, `location`, `name`, `role`, `status`, `type`), the page (`page-size`,
// `start`) and its order (`sort-criteria`). Returns 0; -1 with an empty response when there is no
// connection or memory, or with the generic error behind what was written when a filter does not
// fit or the server refuses the query.
request_handler wlmng_search;

// A document with the session's user and role, each cut to 127 bytes of markup. Returns 0; -1, the
// response empty, when memory runs out.
request_handler wlm_get_permissions;

// Replaces the response by the saved definitions of custom reports, whose content means nothing
// here; by a document of status "ok" when there are none (report_store.h). Returns 0.
request_handler cr_load;

// Saves the form field "operand" as those, every byte of it; one without data makes an empty file.
// The old file stays until the new one is on the flash whole, so a failed save loses nothing. Tells
// whether it worked, and of a flash that is getting full. Returns 0.
request_handler cr_save;

// Sends the form field "operand" back as a file, every byte of it; an empty one when it is absent.
// `type` 1 makes the browser save it whatever it holds, any other shows it as a table. Returns 0;
// -1, the response empty, when memory runs out.
request_handler plog_export_csv;
