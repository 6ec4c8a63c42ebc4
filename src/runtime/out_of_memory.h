// How a request ends that memory runs out for: with the one answer that needs none.
#pragma once

struct request_record;

// From now on a failed `operator new` ends the process with status 0. Unless the answer was being
// written already, it is that of out_of_memory_answer. Descriptors, and the locks on them, go with
// the process. REQUIRES: what must be removed again is made and removed without `operator new` in
// between, as spool files are, or is known to out_of_memory_answer.
void out_of_memory_install();

// Writes the memory error (error_response.h) as the answer to the request, and
// removes the image that its upload stored, since nobody was told of it.
void out_of_memory_answer(request_record& request);
