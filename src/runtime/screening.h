// Refuses query strings that carry markup or an event handler, before any handler runs.
#pragma once

#include <string_view>

// True when a tag of the blacklist follows a "<" or an escaped angle bracket, whatever its case.
// The query is still escaped.
[[nodiscard]] bool screening_finds_tag(std::string_view query);

// True when an unescaped query holds a quote, later "on", later "=(" and later ")": the shape of an
// event-handler attribute. NULs hide nothing.
[[nodiscard]] bool screening_finds_event_handler(std::string_view decoded);
