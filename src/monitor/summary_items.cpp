#include "monitor/summary_items.h"

#include <array>
#include <unistd.h>

#include "platform/paths.h"

#include "runtime/escape.h"
#include "runtime/strbuf.h"

#include "monitor/custom_reports.h"
#include "monitor/event_counts.h"
#include "monitor/warnings.h"

namespace {

using enum item_kind;

constexpr std::size_t host_name_size = 512;
constexpr std::int32_t escaped_host_name_size = 1024;

int basic_info_text(wms_strbuf* out, std::string_view basic_info) {
    wms_strbuf_append(out, basic_info.data(), static_cast<std::int32_t>(basic_info.size()));
    return 0;
}

int custom_reports_text(wms_strbuf* out, std::string_view /*basic_info*/) {
    return wuic_uih_custom_reports_to_cli(out);
}

int events_text(wms_strbuf* out, std::string_view /*basic_info*/) {
    return event_counts_text(out);
}

int host_name_text(wms_strbuf* out, std::string_view /*basic_info*/) {
    char name[host_name_size] = "";
    char escaped[escaped_host_name_size];
    // A name that was cut need not end in a NUL.
    if (gethostname(name, sizeof name - 1) != 0) name[0] = '\0';
    wms_strbuf_fmt(out, "<re><d n='hostname'>%s</d></re>",
                   wuic_jsesc(escaped, sizeof escaped, name, 0));
    return 0;
}

constexpr auto common_items = std::to_array<summary_item>({
    {.label = "wuic basic-info", .kind = local, .text = basic_info_text},
    {.label = "show keys all", .kind = raw_reply},
    {.label = "show ap essid", .kind = reply},
    {.label = "show profile-errors", .kind = reply},
    {.label = "show control-plane-security", .kind = reply},
    {.label = "show whitelist-db cpsec-status", .kind = reply},
    {.label = "wuic localip-warnings", .kind = local, .text = wuic_get_localip_warning},
    {.label = "wuic ap-limit-warnings", .kind = local, .text = wuic_get_ap_limit_warning},
    {.label = "wuic custom-reports", .kind = local, .text = custom_reports_text},
});

constexpr auto master_items = std::to_array<summary_item>({
    {.label = "show switches summary", .kind = reply},
    {.label = "show aaa authentication-server all", .kind = reply},
    {.label = "show wms routers", .kind = reply},
    {.label = "show ap database-summary", .kind = reply},
    {.label = "show wms monitor-summary", .kind = reply},
    {.label = "db", .kind = local, .text = events_text},
});

constexpr auto controller_items = std::to_array<summary_item>({
    {.label = "show country", .kind = reply},
    {.label = "hostname", .kind = local, .text = host_name_text},
    {.label = "systime", .kind = shell, .command = "date"},
    {.label = "show version", .kind = shell, .command = paths::own_version_command},
    // The screen reads the processors' load under this name.
    {.label = "show datapath utilization", .kind = fast_path, .command = "show cpuload"},
    {.label = "show interface vlan 1", .kind = reply},
    {.label = "show interface loopback", .kind = reply},
    {.label = "show ap blacklist-clients", .kind = reply},
    {.label = "show wlan-ap-count type access-point", .kind = reply},
    {.label = "show wlan-ap-count type air-monitor", .kind = reply},
    {.label = "show wlan-ap-count type ap-monitor", .kind = reply},
    {.label = "show wlan-ap-count type spectrum-monitor", .kind = reply},
    {.label = "show wlan-ap-count type secure-access", .kind = reply},
    {.label = "show tunneled-node state", .kind = reply},
    {.label = "show user-table rows 1 1", .kind = reply},
    {.label = "show aaa state configuration", .kind = reply},
    {.label = "show mobility-managers", .kind = reply},
});

}  // namespace

std::span<const summary_item> summary_common_items() {
    return common_items;
}

std::span<const summary_item> summary_master_items() {
    return master_items;
}

std::span<const summary_item> summary_controller_items() {
    return controller_items;
}
