#include <span>
#include <string_view>
#include <vector>

#include "runtime/cgi.h"
#include "runtime/error_response.h"
#include "runtime/log.h"
#include "runtime/session_record.h"
#include "runtime/sgml_text.h"
#include "runtime/strbuf.h"

#include "backend/command_run.h"
#include "backend/markup.h"

#include "monitor/monitor_handlers.h"
#include "monitor/shell_capture.h"
#include "monitor/status_fragments.h"
#include "monitor/summary_items.h"

namespace {

using items_view = std::span<const summary_item>;

constexpr std::string_view controller_operand = "controller-summary";
constexpr int operand_log_line = 2169;  // part of the log line's fixed text

// An item and, for a command, what came back.
struct item_result {
    const summary_item* item;
    command_outcome result;
};

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != text.npos;
}

// Asked for by name, the controller's view is shown in any case. A controller that does not answer
// is held to be a master.
items_view choose_view(const command_outcome& basic_info, const char* operand) {
    if (operand != nullptr && operand == controller_operand) {
        controller_log(log_debug, "XML value: %s in line:%d", operand, operand_log_line);
        return summary_controller_items();
    }
    const std::string_view reply = command_reply(basic_info);
    const bool is_master =
        contains(reply, "<d n='mst'>true</d>") && !contains(reply, "<d n='ems'>true</d>");
    return is_master || !basic_info.reply ? summary_master_items() : summary_controller_items();
}

std::vector<item_result> plan_items(items_view rest) {
    std::vector<item_result> plan;
    for (const items_view part : {summary_common_items(), rest}) {
        for (const summary_item& item : part)
            plan.push_back({.item = &item, .result = {}});
    }
    return plan;
}

void run_commands(std::vector<item_result>* plan, const session_record* session) {
    for (item_result& entry : *plan) {
        const summary_item& item = *entry.item;
        const char* const command = item.command != nullptr ? item.command : item.label;
        if (item.kind == item_kind::reply || item.kind == item_kind::raw_reply) {
            entry.result = command_run(session, command);
        } else if (item.kind == item_kind::fast_path) {
            entry.result = command_run_fast(session->user, session->role, command);
        }
    }
}

void write_head(wms_strbuf* out) {
    char fragment[status_fragment_size];
    wms_strbuf_fmt(out, "%s<qorin><status>ok</status>\n", xml_header);
    getUpgradeInfo(fragment, sizeof fragment);
    wms_strbuf_fmt(out, "%s", fragment);
    getTpmCertInitFailStatus(fragment, sizeof fragment);
    wms_strbuf_fmt(out, "%s", fragment);
}

void write_raw(wms_strbuf* out, std::string_view text) {
    wms_strbuf_fmt(out, "<result><![CDATA[");
    static_cast<void>(wms_strbuf_reserve(out, static_cast<std::int64_t>(text.size())));
    cdata_append(out, text);
    wms_strbuf_fmt(out, "]]></result>");
}

void write_reply(wms_strbuf* out, const command_outcome& result) {
    if (result.failed || !result.reply) {
        wms_strbuf_fmt(out, "<status>error</status>\n");
        write_raw(out, result.msg);
        wms_strbuf_fmt(out, "\n");
        return;
    }
    const std::string_view reply = command_reply(result);
    const auto length = static_cast<std::int32_t>(reply.size());
    wms_strbuf_fmt(out, "<status>ok</status>\n<result>");
    // Escaping grows the buffer to the byte, which may copy the whole document.
    static_cast<void>(wms_strbuf_reserve(out, length));
    st_esc2(out, reply.data(), length, false, true);
    wms_strbuf_fmt(out, "</result>\n");
}

int write_item(wms_strbuf* out, std::size_t id, const item_result& entry,
               std::string_view basic_info) {
    const auto& [item, result] = entry;
    scoped_strbuf made;
    if (item->kind == item_kind::local && item->text(made, basic_info) < 0) return -1;
    if (item->kind == item_kind::shell) shell_capture(made, item->command);

    wms_strbuf_fmt(out, "<cli><id>%zu</id><cmd>%s</cmd>", id, item->label);
    if (item->kind == item_kind::reply || item->kind == item_kind::fast_path) {
        write_reply(out, result);
    } else if (item->kind == item_kind::raw_reply) {
        write_raw(out, command_reply(result));
    } else {
        write_raw(out, {made.buf.data, static_cast<std::size_t>(made.buf.length)});
    }
    wms_strbuf_fmt(out, "</cli>\n");
    return 0;
}

}  // namespace

int wuic_get_monitor_summary_data(const char* /*key*/, wms_strbuf* response,
                                  session_record* session, pg_conn* /*db*/, cgi* input) {
    const command_outcome basic_info = command_run(session, "wuic:basic-info");
    std::vector<item_result> plan =
        plan_items(choose_view(basic_info, cgi_named_value(input, "operand")));
    run_commands(&plan, session);

    wms_strbuf_clear(response);
    write_head(response);
    for (std::size_t id = 0; id < plan.size(); ++id) {
        if (write_item(response, id, plan[id], command_reply(basic_info)) < 0) return -1;
    }
    wms_strbuf_fmt(response, "</qorin>\n");
    return 0;
}
