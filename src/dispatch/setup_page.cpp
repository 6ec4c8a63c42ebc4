#include "dispatch/setup_page.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "runtime/escape.h"
#include "runtime/strbuf.h"

#include "dispatch/dispatch_table.h"

namespace {

constexpr char page_format[] =
    "Content-Type: text/html\r\n"
    "Expires: 0\r\n"
    "Set-Cookie: SESSION=%s; path=/; secure; HttpOnly\r\n"
    "\r\n"
    "<!DOCTYPE html>\n"
    "<html lang=\"en\">\n"
    "<head><meta charset=\"utf-8\"><title>Initial setup</title></head>\n"
    "<body>\n"
    "<h1>Initial setup</h1>\n"
    "<p>This controller has its factory-default configuration. Until it is set up, only the\n"
    "endpoints below are served. Requests that change something carry this token as their last\n"
    "parameter: <code>UIDQORIN=%s</code></p>\n"
    "<ul>\n";

std::string_view last_element(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

// The last elements of the rows that are served, in ascending order.
std::vector<std::string_view> setup_keys() {
    std::vector<std::string_view> keys;
    for (const dispatch_row& row : dispatch_rows()) {
        if (row.in_setup) keys.push_back(last_element(row.name));
    }
    std::ranges::sort(keys);
    return keys;
}

}  // namespace

bool is_setup_key(const char* program_name) {
    std::string_view name = program_name;
    name = last_element(name.substr(0, name.find('?')));
    return std::ranges::any_of(dispatch_rows(), [name](const dispatch_row& row) {
        return row.in_setup && last_element(row.name) == name;
    });
}

void write_setup_page(wms_strbuf* response) {
    char identifier[64];
    wuic_get_uuid(identifier, sizeof identifier);
    wms_strbuf_clear(response);
    wms_strbuf_fmt(response, page_format, identifier, identifier);
    for (const std::string_view key : setup_keys()) {
        wms_strbuf_fmt(response, "<li><code>%.*s</code></li>\n", static_cast<int>(key.size()),
                       key.data());
    }
    wms_strbuf_fmt(response, "</ul>\n</body>\n</html>\n");
}
