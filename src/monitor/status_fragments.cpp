#include "monitor/status_fragments.h"

#include <cstdio>

#include "platform/ownership.h"
#include "platform/paths.h"
#include "platform/safe_open.h"

#include "runtime/body_input.h"

namespace {

constexpr std::size_t check_text_size = 1024;  // with its NUL

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming): fixed name
void getUpgradeInfo(char* out, std::int32_t size) {
    char text[check_text_size] = "";
    const unique_fd file = safe_open_trusted(paths::integrity_check_result);
    // A file that cannot be read leaves the text as it is: empty.
    if (file) static_cast<void>(read_whole(file.get(), text, sizeof text - 1));
    std::snprintf(out, static_cast<std::size_t>(size), "<upgrade>%s</upgrade>\n", text);
}

// NOLINTNEXTLINE(readability-identifier-naming): fixed name
void getTpmCertInitFailStatus(char* out, std::int32_t size) {
    const bool present{safe_open_trusted(paths::tpm_cert_mark)};
    std::snprintf(out, static_cast<std::size_t>(size),
                  "<tpmcertinitstatus>%s</tpmcertinitstatus>\n", present ? "passed" : "failed");
}
