#include "monitor/report_store.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/free_space.h"
#include "platform/ownership.h"
#include "platform/paths.h"
#include "platform/safe_open.h"

#include "runtime/cgi.h"
#include "runtime/error_response.h"
#include "runtime/fsb.h"
#include "runtime/strbuf.h"
#include "runtime/wait.h"

#include "monitor/monitor_handlers.h"

namespace {

constexpr std::int64_t recommended_flash_mib = 2000;
constexpr mode_t everybody = 0666;  // as far as the umask lets them
constexpr std::int32_t reason_size = 256;
constexpr std::size_t path_size = 64;

bool write_all(int fd, std::string_view data) {
    while (!data.empty()) {
        const ssize_t written = ::write(fd, data.data(), data.size());
        if (written < 0 && errno != EINTR) return false;
        if (written > 0) data.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// Writes beside the file, under a name of this process's own, and renames.
bool replace_file(const char* path, std::string_view data) {
    char fresh[path_size];
    std::snprintf(fresh, sizeof fresh, "%s.%d", path, static_cast<int>(::getpid()));
    const unique_fd file = safe_open_for_writing(fresh, O_WRONLY | O_TRUNC, everybody);
    if (!file) return false;
    const bool written = write_all(file.get(), data) && ::fsync(file.get()) == 0;
    if (written && !client_has_left() && ::rename(fresh, path) == 0) return true;
    ::unlink(fresh);
    return false;
}

void append_flash_warning(fsb* reason) {
    const std::int64_t free = free_flash_mib();
    if (free >= recommended_flash_mib) return;
    fsb_fmt(reason,
            "There is only %d MB left on the flash. At least %d MB of free flash space is "
            "recommended to keep the system stable. Please clean-up your flash file system.",
            static_cast<int>(free), static_cast<int>(recommended_flash_mib));
}

int answer_save(wms_strbuf* response, bool saved, const char* reason) {
    return wms_strbuf_fmt(response,
                          "%s<qorin>\n<status>%s</status>\n<reason>%s</reason>\n</qorin>\n",
                          xml_header, saved ? "ok" : "error", reason);
}

std::string_view data_of(const cgi_pair& pair) {
    if (pair.value == nullptr || pair.value_len <= 0) return {};
    return {pair.value, static_cast<std::size_t>(pair.value_len)};
}

}  // namespace

std::int32_t report_store_read(wms_strbuf* out) {
    const unique_fd file = safe_open_trusted(paths::custom_reports);
    struct stat facts {};
    if (!file || ::fstat(file.get(), &facts) != 0) return -1;
    if (facts.st_size < 0 || facts.st_size > report_store_max) return -1;
    if (wms_strbuf_reserve(out, facts.st_size) != 0) return -1;
    const std::int32_t before = out->length;
    const auto size = static_cast<std::int32_t>(facts.st_size);
    const std::int32_t whole = before + size;
    ssize_t got = 1;
    while (out->length < whole && got != 0) {
        char* const end = out->data + out->length;
        got = ::read(file.get(), end, static_cast<std::size_t>(whole - out->length));
        if (got < 0 && errno != EINTR) break;
        if (got > 0) out->length += static_cast<std::int32_t>(got);
    }
    const bool complete = out->length == whole;
    if (!complete) out->length = before;
    out->data[out->length] = '\0';
    return complete ? size : -1;
}

int cr_load(const char* /*key*/, wms_strbuf* response, session_record* /*session*/, pg_conn* /*db*/,
            cgi* /*input*/) {
    wms_strbuf_clear(response);
    wms_strbuf_fmt(response, "%s", xml_header);
    if (report_store_read(response) > 0) return 0;
    wms_strbuf_fmt(response, "<qorin><status>ok</status></qorin>");
    return 0;
}

int cr_save(const char* /*key*/, wms_strbuf* response, session_record* /*session*/, pg_conn* /*db*/,
            cgi* input) {
    const cgi_pair* const operand = cgi_named_pair(input, "operand");
    if (operand == nullptr) {
        wuic_generic_error(response, "invalid arguments");
        return 0;
    }
    const std::string_view data = data_of(*operand);
    if (data.size() > report_store_max) {
        answer_save(response, false, "Custom reports are too large.");
        return 0;
    }
    if (client_has_left()) return -1;
    static_cast<void>(::mkdir(paths::upload_folder, everybody));  // fails where there is one
    const bool saved = replace_file(paths::custom_reports, data);
    char text[reason_size] = "";
    fsb reason;
    fsb_new(&reason, text, sizeof text);
    if (!saved) fsb_fmt(&reason, "Internal error!");
    append_flash_warning(&reason);
    answer_save(response, saved, text);
    return 0;
}
