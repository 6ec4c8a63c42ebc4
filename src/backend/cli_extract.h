// Pull one thing out of a command's reply without building its model. Texts are taken as they stand
// in the reply, references not decoded; what stood in a CDATA section is escaped when it is
// written.
#pragma once

#include <cstdint>

struct session_record;
struct sfmt;
struct sgml_tokenizer;
struct wms_strbuf;

// Configured speed and duplex of a port ("show port status"); both are "autoerr" when they cannot
// be read. Returns 0, or -1 for "autoerr".
// NOLINTNEXTLINE(readability-function-size): fixed interface
int get_portspeed(const session_record* session, const char* port, char* speed,
                  std::int32_t speed_size, char* duplex, std::int32_t duplex_size);

// The network aliases of the running configuration as an XML table, in `out` of `size` bytes,
// NUL-terminated: as many whole rows as fit. Returns 0; -1 when the command failed (the table is
// then empty) or not even that fits (`out` is then empty).
int get_aliases(const session_record* session, char* out, std::int32_t size);

// Advances to the opening tag of the table of this name. Returns 1, or 0 at the end.
int get_tableData(sgml_tokenizer* tokenizer,
                  const char* name);  // NOLINT(readability-identifier-naming): fixed name

// Runs "command profile" and appends, for each row whose first cell is the beginning of `label`
// (an empty cell is none), the second cell by `format`, in which "%s" stands for it.
// Returns 0, or -1 when the command failed.
// NOLINTNEXTLINE(readability-function-size): fixed interface
int get_profile_parm(wms_strbuf* out, const session_record* session, const char* command,
                     const char* label, const char* format, const char* profile);

// Appends what a captive-portal profile is set to, as elements. Returns as get_profile_parm.
int get_cpprofile_parms(wms_strbuf* out, const session_record* session, const char* profile);

// Appends one column of the table that the tokenizer is in, by `format` as above, and leaves the
// tokenizer at the table's end. Returns 0, or -1 when there is no such column.
int get_columnData(sgml_tokenizer* tokenizer, const char* label, const char* format,
                   wms_strbuf* out);  // NOLINT(readability-identifier-naming): fixed name

// Appends the servers of a server group's reply, a row each.
int iparse_srvgrp_output(wms_strbuf* out, const char* reply, std::int32_t length);

// Sets the page variable "vlan_iphelper" to the DHCP relays of each VLAN of the running
// configuration, an XML table. Returns 0; -1, the variable unset, when memory runs out.
int populate_vlan_iphelper(sfmt* vars, const session_record* session);
