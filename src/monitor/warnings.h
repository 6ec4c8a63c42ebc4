// What the dashboard warns of, read from the controller's basic-info reply: its `d` elements by
// their attribute `n`. Each appends a whole reply document, with a WARNING element or empty, and
// returns 0. Values that are missing or make no sense warn of nothing.
#pragma once

#include <string_view>

struct wms_strbuf;

// A controller whose address ("localip") is a loopback address.
int wuic_get_localip_warning(wms_strbuf* out, std::string_view basic_info);

// Access points ("apcount") that make up nine tenths of a limit ("aplimit") above 0, or more.
int wuic_get_ap_limit_warning(wms_strbuf* out, std::string_view basic_info);
