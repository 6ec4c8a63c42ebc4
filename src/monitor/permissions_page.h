// Who the caller is, and what the caller may.
#pragma once

#include "runtime/handler.h"

struct session_record;

// A document with the session's user and role, each cut to 127 bytes of markup. Returns 0; -1, the
// response empty, when memory runs out.
request_handler wlm_get_permissions;

// Always 0: what a role may write is decided by the masks of the dispatch table alone.
int wlm_does_user_have_write_permissions(const session_record* session);
