#include <span>
#include <string_view>

#include "runtime/cgi.h"
#include "runtime/error_response.h"
#include "runtime/log.h"
#include "runtime/session_record.h"
#include "runtime/sgml_text.h"
#include "runtime/strbuf.h"

#include "backend/command.h"
#include "backend/command_batch.h"
#include "backend/markup.h"

#include "monitor/monitor_handlers.h"
#include "monitor/shell_capture.h"
#include "monitor/status_fragments.h"
#include "monitor/summary_items.h"

namespace {

using items_view = std::span<const summary_item>;

constexpr std::string_view controller_operand = "controller-summary";
constexpr int operand_log_line = 2169;  // part of the log line's fixed text

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

bool is_command(const summary_item& item) {
    return item.kind != item_kind::local && item.kind != item_kind::shell;
}

// A view's items, of which the commands go out ahead of what is being written.
struct summary_items {
    items_view common;
    items_view rest;
    command_batch commands;
    std::size_t next = 0;  // the first item that was not looked at for sending

    summary_items(const session_record* session, items_view view)
        : common(summary_common_items()), rest(view), commands(session) {}
    std::size_t size() const { return common.size() + rest.size(); }
    const summary_item& at(std::size_t id) const {
        return id < common.size() ? common[id] : rest[id - common.size()];
    }
};

void send_ahead(summary_items* items) {
    for (; items->next < items->size(); ++items->next) {
        const summary_item& item = items->at(items->next);
        if (!is_command(item)) continue;
        if (!command_batch_has_room(items->commands)) return;
        const char* const command = item.command != nullptr ? item.command : item.label;
        if (item.kind == item_kind::fast_path) {
            command_batch_add_fast(&items->commands, command);
        } else {
            command_batch_add(&items->commands, command);
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
    wms_strbuf_fmt(out, "<status>ok</status>\n<result>");
    st_esc2(out, reply.data(), static_cast<std::int32_t>(reply.size()), false, true);
    wms_strbuf_fmt(out, "</result>\n");
}

void write_command(wms_strbuf* out, const summary_item& item, const command_outcome& result) {
    if (item.kind == item_kind::raw_reply) {
        write_raw(out, command_reply(result));
    } else {
        write_reply(out, result);
    }
}

// Appends what we find out ourselves. Returns 0, or -1 when the document ends here.
int own_text(wms_strbuf* out, const summary_item& item, std::string_view basic_info) {
    int result = 0;
    if (item.kind == item_kind::local) {
        result = item.text(out, basic_info);
    } else {
        shell_capture(out, item.command);
    }
    return result;
}

int write_item(wms_strbuf* out, std::size_t id, summary_items* items, std::string_view basic_info) {
    const summary_item& item = items->at(id);
    scoped_strbuf made;
    send_ahead(items);
    if (!is_command(item)) {
        command_batch_advance(&items->commands);
        if (own_text(made, item, basic_info) < 0) return -1;
    }
    wms_strbuf_fmt(out, "<cli><id>%zu</id><cmd>%s</cmd>", id, item.label);
    if (is_command(item)) {
        write_command(out, item, command_batch_take(&items->commands));
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
    const items_view rest = choose_view(basic_info, cgi_named_value(input, "operand"));

    wms_strbuf_clear(response);
    write_head(response);
    summary_items items(session, rest);
    for (std::size_t id = 0; id < items.size(); ++id) {
        if (write_item(response, id, &items, command_reply(basic_info)) < 0) return -1;
    }
    wms_strbuf_fmt(response, "</qorin>\n");
    return 0;
}
