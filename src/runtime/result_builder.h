// Builders of small result documents in a fixed buffer. Nothing is escaped: texts are made safe
// first (xml_escape_the_string). Each returns what fsb_fmt returned for its piece (fsb.h).
#pragma once

#include "runtime/fsb.h"

// Empties the buffer and begins a document; and its end.
int obs_start_result(fsb* buf);
int obs_end_result(fsb* buf);

// Begins a table, and ends it. Its name goes into the attribute "name", unlike in the CLI helper's
// documents.
int obs_start_table(fsb* buf, const char* name);
int obs_end_table(fsb* buf);

int obs_add_data(fsb* buf, const char* name, const char* value);

// A malloc'ed copy that the caller frees; null when memory runs out, and for null.
[[nodiscard]] char* obs_strdup(const char* text);
