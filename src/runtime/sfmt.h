// Page templates: a list of variables, and the renderer that fills their values into a text.
//
// Tags: <%name%> is the value of the variable (blanks, tabs, CR and LF around the name are
// dropped; an unknown name is nothing), <%@path%> is the file of that path rendered in its place,
// <%-- --%> is nothing. An unclosed tag stays in the output with all that follows. Values are
// inserted as they are: callers escape them for the language of the page before sfmt_add.
#pragma once

#include <cstdint>

#include "runtime/strbuf.h"

inline constexpr int sfmt_depth_max = 5;                 // included files that are still rendered
inline constexpr std::int32_t sfmt_path_max = 1023;      // characters of an include's path
inline constexpr std::int32_t sfmt_file_max = 16 << 20;  // bytes of a template file

struct sfmt {
    wms_strbuf index;  // 32-bit offsets into the pool, name and value of each variable
    wms_strbuf pool;   // the names and values, each with its NUL
};

// Makes an empty list. Returns 0, or -1 for null.
int sfmt_init(sfmt* vars);

// Adds a variable; of two with one name the first is found. A length below 1 stands for the text's
// own. Returns 0; -1 for a null text or when memory runs out, the list unchanged.
int sfmt_add(sfmt* vars, const char* name, std::int32_t name_len, const char* value,
             std::int32_t value_len);

// Renders into `storage` of `size` bytes. Result as fsb (fsb.h).
int sfmt_fmt(const sfmt* vars, char* storage, std::int32_t size, const char* text,
             std::int32_t text_len);

// Renders into a new block, which the caller frees; `out` is null and `out_len` 0 for an empty
// result (then 0 is returned) and when memory runs out. Else returns the negated length: look at
// `out`, not at the result.
int sfmt_fmt_ii(const sfmt* vars, char** out, std::int32_t* out_len, const char* text,
                std::int32_t text_len);

// Appends to a growing buffer. Returns its new length; -1 when it cannot grow, with what it held
// before.
int sfmt_fmt_iii(const sfmt* vars, wms_strbuf* buf, const char* text, std::int32_t text_len);

// The same three with the template in a file; 0 when it cannot be read.
int sfmt_fmtf(const sfmt* vars, char* storage, std::int32_t size, const char* path);
int sfmt_fmtf_ii(const sfmt* vars, char** out, std::int32_t* out_len, const char* path);
int sfmt_fmtf_iii(const sfmt* vars, wms_strbuf* buf, const char* path);

// Reads all of a regular file. `data` is malloc'ed, with a NUL behind its `size` bytes, and the
// caller's to free. Returns 0; else an errno value, with `data` null and `size` 0: that of the
// failed call, or EINVAL for no path or no regular file, EFBIG above sfmt_file_max, EIO when a read
// came short.
[[nodiscard]] int sfmt_read_all(char** data, std::int32_t* size, const char* path);

// Frees the list. Null is ignored.
void sfmt_deinit(sfmt* vars);
