// What the caller may.
#pragma once

struct session_record;

// Always 0: what a role may write is decided by the masks of the dispatch table alone.
int wlm_does_user_have_write_permissions(const session_record* session);
