#include <cstdlib>
#include <string_view>

#include "runtime/cgi.h"
#include "runtime/strbuf.h"

#include "monitor/monitor_handlers.h"

namespace {

constexpr std::string_view attachment_header =
    "Content-Disposition: attachment\r\nContent-Type: application/octet-stream\r\n\r\n";
constexpr std::string_view table_header = "Content-Type: application/x-csv\r\nExpires: 0\r\n\r\n";

bool asks_for_attachment(const cgi* input) {
    const char* const type = cgi_named_value(input, "type");
    return type != nullptr && std::strtol(type, nullptr, 10) == 1;
}

}  // namespace

int plog_export_csv(const char* /*key*/, wms_strbuf* response, session_record* /*session*/,
                    pg_conn* /*db*/, cgi* input) {
    const std::string_view header = asks_for_attachment(input) ? attachment_header : table_header;
    wms_strbuf_append(response, header.data(), static_cast<std::int32_t>(header.size()));
    const cgi_pair* const table = cgi_named_pair(input, "operand");
    if (table == nullptr || table->value == nullptr) return 0;
    if (wms_strbuf_append(response, table->value, table->value_len) == 0) return 0;
    wms_strbuf_clear(response);  // half a table looks like a whole one
    return -1;
}
