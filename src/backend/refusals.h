// Refusals that more than one floor answers with.
#pragma once

struct wms_strbuf;

// The generic error document for a role that may not, and its log line.
void refuse_permission(wms_strbuf* response, const char* key);
