#include "backend/command_policy.h"

#include <algorithm>
#include <array>

#include "runtime/session_record.h"

#include "backend/permission.h"

namespace {

using std::string_view;

struct internal_request {
    string_view name;
    std::uint32_t mask;
    char separator = '\0';  // what may stand between the name and the rest; NUL: there is no rest
};

// Whatever is not listed is left to "root", the running configuration in clear text above all.
constexpr auto internal_requests = std::to_array<internal_request>({
    {.name = "basic-info", .mask = mask_every_role},
    {.name = "syscontact", .mask = mask_every_role},
    {.name = "syslocation", .mask = mask_every_role},
    {.name = "cache show", .mask = mask_every_role, .separator = ' '},
    {.name = "write memory", .mask = 0x4},
    {.name = "exec-query", .mask = mask_ui_query, .separator = '?'},
    {.name = "get-running-config", .mask = mask_running_config, .separator = '?'},
    {.name = "get-user-record", .mask = mask_user_records, .separator = '?'},
    {.name = "get-all-user-records", .mask = mask_user_records, .separator = '?'},
    {.name = "telm", .mask = mask_telm, .separator = '?'},
});

constexpr string_view internal_prefix = "wuic:";

constexpr std::array<string_view, 3> words_for_everybody{"ping", "show", "traceroute"};

constexpr bool is_separator(char c) {
    return c == ' ' || c == '\t';
}

// The command without the blanks in front of it.
string_view without_leading_blanks(string_view command) {
    command.remove_prefix(static_cast<std::size_t>(std::ranges::find_if_not(command, is_separator) -
                                                   command.begin()));
    return command;
}

// REQUIRES: no blanks in front.
string_view first_word(string_view command) {
    return {command.begin(), std::ranges::find_if(command, is_separator)};
}

bool is_printable(char c) {
    return c > ' ' && c < 0x7F;
}

bool equal_but_case(char a, char b) {
    return (a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) == b;
}

// REQUIRES: no blanks in front.
bool is_internal(string_view command) {
    const string_view head = command.substr(0, internal_prefix.size());
    return std::ranges::equal(head, internal_prefix, equal_but_case);
}

bool is_request(string_view text, const internal_request& row) {
    if (!text.starts_with(row.name)) return false;
    text.remove_prefix(row.name.size());
    return text.empty() || (row.separator != '\0' && text.front() == row.separator);
}

bool has_role(const session_record* session, string_view role) {
    return session->found && role == session->role;
}

}  // namespace

bool command_is_permitted(const session_record* session, string_view command) {
    command = without_leading_blanks(command);
    // What the command service may take for white space must not hide the word behind it.
    if (!std::ranges::all_of(first_word(command), is_printable)) return false;
    if (!is_internal(command) || has_role(session, "root")) return true;
    command.remove_prefix(internal_prefix.size());
    return std::ranges::any_of(internal_requests, [&](const internal_request& row) {
        return is_request(command, row) && wuic_check_perm(session, row.mask);
    });
}

bool fast_path_is_permitted(const session_record* session, string_view command) {
    if (!command_is_permitted(session, command)) return false;
    if (has_role(session, "root") || has_role(session, "standard")) return true;
    const string_view word = first_word(without_leading_blanks(command));
    return std::ranges::find(words_for_everybody, word) != words_for_everybody.end();
}
