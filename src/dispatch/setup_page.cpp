#include "dispatch/setup_page.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "runtime/escape.h"
#include "runtime/strbuf.h"

namespace {

constexpr auto setup_keys = std::to_array<std::string_view>({
    "applyInitialSetupValues.html",
    "execCommandReturnResult.xml",
    "execFPCliCommand.xml",
    "geninstrpdf.html",
    "getRolePolicy.xml",
    "getRunningConfig.xml",
    "importFile.html",
    "pingUser.xml",
    "restartProfMgr.xml",
    "saveBocReboot.html",
    "saveReboot.html",
    "setupdata.xml",
    "tracerouteUser.xml",
    "upgradeImageReboot.xml",
    "wizard-cp.html",
    "ztp.log",
});
static_assert(std::ranges::is_sorted(setup_keys));

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

}  // namespace

bool is_setup_key(const char* program_name) {
    std::string_view name = program_name;
    name = name.substr(0, name.find('?'));
    return std::ranges::binary_search(setup_keys, name.substr(name.rfind('/') + 1));
}

void write_setup_page(wms_strbuf* response) {
    char identifier[64];
    wuic_get_uuid(identifier, sizeof identifier);
    wms_strbuf_clear(response);
    wms_strbuf_fmt(response, page_format, identifier, identifier);
    for (const std::string_view key : setup_keys) {
        wms_strbuf_fmt(response, "<li><code>%.*s</code></li>\n", static_cast<int>(key.size()),
                       key.data());
    }
    wms_strbuf_fmt(response, "</ul>\n</body>\n</html>\n");
}
