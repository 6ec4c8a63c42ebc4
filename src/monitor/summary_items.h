// What the dashboard is made of: the items of each view, in their order.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

struct wms_strbuf;

enum class item_kind : std::uint8_t {
    reply,      // a command's reply, escaped, or its error
    fast_path,  // the same, through the fast path
    raw_reply,  // a command's reply as it came
    shell,      // what a shell command writes
    local,      // a text of our own
};

// Appends an item's text, or returns -1: the document then ends.
using item_text = int(wms_strbuf* out, std::string_view basic_info);

struct summary_item {
    const char* label;
    item_kind kind;
    const char* command = nullptr;  // where the label is not the command
    item_text* text = nullptr;      // of a local item
};

// The items that both views begin with, and the rest of each.
std::span<const summary_item> summary_common_items();
std::span<const summary_item> summary_master_items();
std::span<const summary_item> summary_controller_items();
