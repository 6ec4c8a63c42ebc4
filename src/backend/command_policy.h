// Which commands a role may have sent on its behalf. Judged is the text as it would be sent, with
// nothing left to decode.
#pragma once

#include <cstdint>
#include <string_view>

struct session_record;

// Masks of the rows that serve an internal request; who may use the row may also type the request.
inline constexpr std::uint32_t mask_ui_query = 0x107;
inline constexpr std::uint32_t mask_running_config = 0x2;
inline constexpr std::uint32_t mask_user_records = 0x6;
inline constexpr std::uint32_t mask_telm = 0x2;

// The helper's message about a command that may not be sent.
inline constexpr char command_refusal[] = "Invalid input";

// May the CLI helper get this command? Its first word, behind blanks and TABs and up to the next of
// them, must be of the bytes 0x21 to 0x7E, whoever sends it. The helper judges ordinary commands by
// the session's user itself, but an internal request (first word "wuic:", in any case of letters)
// it takes on trust. "root" may send any; other roles those that a table of requests opens to them.
[[nodiscard]] bool command_is_permitted(const session_record* session, std::string_view command);

// May the fast path get it? Internal requests are judged as above. There every command runs as
// "root", so that roles other than "root" and "standard" only get the first words show, ping and
// traceroute.
[[nodiscard]] bool fast_path_is_permitted(const session_record* session, std::string_view command);
