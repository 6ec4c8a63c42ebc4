// Runs a command and reads its reply element by element: what handlers use that need a few texts of
// a reply and not its model (cli_data.h).
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/ownership.h"

#include "backend/sgml_tokenizer.h"

struct session_record;

// Owns the reply that its tokenizer reads.
struct cli_reader {
    malloc_text reply;
    sgml_tokenizer tokenizer;
};

// Runs `command` as the session's user, with a blank and `argument` unless that is null, cut at the
// first CR or LF. Returns 0; -1, with nothing to read, when the exchange failed or the helper has a
// message.
[[nodiscard]] int cli_reader_execute(cli_reader* reader, const session_record* session,
                                     const char* command, const char* argument);

// Whether the current token is such a tag.
bool cli_reader_is_open(const sgml_tokenizer* tokenizer, const char* name);
bool cli_reader_is_close(const sgml_tokenizer* tokenizer, const char* name);

// How a text is wanted: as it stands in the reply, to compare it; or to write it into element
// content, where what stood in a CDATA section is escaped. References are never decoded.
enum class text_form : std::uint8_t { raw, markup };

// The text of the current element, that of nested ones included, up to the first NUL byte. Leaves
// the tokenizer at the close tag. The text stands in `buf`, whose content it replaces.
std::string_view cli_reader_text(sgml_tokenizer* tokenizer, wms_strbuf* buf, text_form form);
