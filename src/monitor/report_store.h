// The definitions of custom reports: one file, which the browser writes and reads. Its content
// means nothing here.
#pragma once

#include "runtime/handler.h"

// Replaces the response by the file; by a document of status "ok" when there is none, or it is
// empty, another user's, a link, or cannot be read whole. Returns 0.
request_handler cr_load;

// Saves the form field "operand", every byte of it; one without data makes an empty file. The old
// file stays until the new one is on the flash whole, so a failed save loses nothing. Tells whether
// it worked, and of a flash that is getting full. Returns 0.
request_handler cr_save;
