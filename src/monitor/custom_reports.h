// The saved list of custom reports, as a table reply.
#pragma once

struct wms_strbuf;

// Appends the table: a row for each report of the saved file, empty when that cannot be read.
// Texts stand in it as they do in the file, cut to their fields of 255 (name, type), 1,023 (url)
// and 127 bytes (time); a cut splits neither a reference nor a character, and what stood in a
// CDATA section is escaped. The request keeps the rendering while the file's time is unchanged.
// Returns 0.
int wuic_uih_custom_reports_to_cli(wms_strbuf* out);
