#include "dispatch/program_name.h"

#include <climits>
#include <initializer_list>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/paths.h"

#include "runtime/cgi.h"

#include "dispatch/dispatch_table.h"

namespace {

bool is_same_file(const char* a, const char* b) {
    struct stat first {};
    struct stat second {};
    return ::stat(a, &first) == 0 && ::stat(b, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

bool is_own_base_name(std::string_view name) {
    char target[PATH_MAX];
    const ssize_t length = ::readlink(paths::own_program, target, sizeof target);
    if (length <= 0 || name.empty()) return false;
    std::string_view own{target, static_cast<std::size_t>(length)};
    own.remove_prefix(own.rfind('/') + 1);
    return name == own;
}

bool is_this_program(const char* argument0) {
    return is_same_file(argument0, paths::own_program) || is_own_base_name(argument0);
}

// A whole path that the table holds wins over one that only matches by its last element: behind a
// server that mounts the program below a prefix, "/prefix/v1/api/login" is the API's login and not
// the row "login".
request_name name_from_variables(const std::string& script, const std::string& info) {
    const std::string both = script + info;
    for (const auto find : {dispatch_find_exact, dispatch_find}) {
        if (const dispatch_row* row = find(both)) return {both, row};
        if (const dispatch_row* row = find(info)) return {info, row};
    }
    return {info.empty() ? script : info, nullptr};
}

std::string variable(const cgi* input, const char* name) {
    const char* value = cgi_get_var(input, name);
    return value == nullptr ? std::string{} : std::string{value};
}

}  // namespace

entry_name entry_name_of(const char* argument0) {
    if (argument0 == nullptr) argument0 = "";
    const dispatch_row* row = dispatch_find(argument0);
    return {
        .text = argument0, .row = row, .is_program = row == nullptr && is_this_program(argument0)};
}

request_name settle_program_name(const entry_name& entry, const cgi* input) {
    if (!entry.is_program) return {entry.text, entry.row};
    const std::string script = variable(input, "SCRIPT_NAME");
    const std::string info = variable(input, "PATH_INFO");
    if (script.empty() && info.empty()) return {entry.text, entry.row};
    return name_from_variables(script, info);
}
