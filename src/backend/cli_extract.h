// Pull one thing out of a command's reply without building its model.
//
// Texts are taken as they stand in the reply: references are not decoded, and a NUL byte ends a
// text. So they are fit for element content; what stood in a CDATA section is escaped when it is
// written. Commands are cut at their first CR or LF. A command has failed when the exchange did, or
// when the helper has a message.
//
// A `format` of a caller holds one "%s", in whose place the text is put. Where `out` cannot grow,
// the piece is left out whole.
#pragma once

#include <cstdint>

struct session_record;
struct sfmt;
struct sgml_tokenizer;
struct wms_strbuf;

// Configured speed and duplex of a port ("show port status"). Both are "autoerr" when the command
// failed, or either is missing or does not fit.
//   speed_size, duplex_size   bytes, with room for a NUL; at least 8
// Returns 0, or -1 for "autoerr".
int get_portspeed(const session_record* session, const char* port, char* speed,
                  std::int32_t speed_size, char* duplex, std::int32_t duplex_size);

// The network aliases of the running configuration as an XML table, in `out` of `size` bytes,
// NUL-terminated: the first rows, as many as fit whole. Returns 0; -1 when the command failed (the
// table is then empty) or not even an empty one fits (`out` is then empty).
int get_aliases(const session_record* session, char* out, std::int32_t size);

// Advances to the opening tag of the table of exactly this name. Returns 1, or 0 at the end.
// NOLINTNEXTLINE(readability-identifier-naming): fixed name
int get_tableData(sgml_tokenizer* tokenizer, const char* name);

// Runs "command profile" and appends, for each row whose first cell is what `label` begins with (an
// empty cell is not), the second cell by `format`. Rows without a close tag are left out.
// Returns 0, or -1 when the command failed.
int get_profile_parm(wms_strbuf* out, const session_record* session, const char* command,
                     const char* label, const char* format, const char* profile);

// Appends what a captive-portal profile is set to, an element for each setting that the web pages
// show. Result as get_profile_parm.
int get_cpprofile_parms(wms_strbuf* out, const session_record* session, const char* profile);

// Appends, by `format`, one column of the table that the tokenizer is in, and leaves the tokenizer
// at the table's end. The first heading that `label` begins with names the column; in a table
// without a heading row its first row is one. Returns 0, or -1 when there is no such column.
// NOLINTNEXTLINE(readability-identifier-naming): fixed name
int get_columnData(sgml_tokenizer* tokenizer, const char* label, const char* format,
                   wms_strbuf* out);

// Appends the name and type of each server in a server group's reply, from the first two cells of
// its rows.
void iparse_srvgrp_output(wms_strbuf* out, const char* reply, std::int32_t length);

// Sets the page variable "vlan_iphelper" to the DHCP relays of each VLAN of the running
// configuration, an XML table; without rows when the command failed. Returns 0; -1, the variable
// unset, when memory runs out.
int populate_vlan_iphelper(sfmt* vars, const session_record* session);
