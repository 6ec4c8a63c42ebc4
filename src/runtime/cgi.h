// One CGI request (RFC 3875): its variables with overrides, and its form fields.
#pragma once

#include <cstdint>

// A form field or an override variable. The pointers of a parsed field point into cgi::body and die
// with it; those of an override are heap copies owned by the record.
struct cgi_pair {
    char* name;
    char* value;             // null when the field had no "="
    std::int32_t value_len;  // decoded bytes of a form field, data bytes of a multipart part
    char* content_type;      // multipart part with a file: its media type; else null
    char* filename;          // multipart part: its file name; else null
};

struct cgi_pairs {
    std::int32_t capacity;  // entries allocated, a multiple of 16
    std::int32_t count;
    cgi_pair* entries;  // sorted by name after parsing
};

struct cgi_vars {
    std::int32_t capacity;
    std::int32_t count;
    std::uint32_t sorted;  // cleared whenever a variable is added
    cgi_pair* entries;
};

struct cgi {
    cgi_pairs pairs;
    cgi_vars vars;
    std::uint32_t body_owned;
    char* body;  // what the pairs point into
    std::uint32_t raw_owned;
    char* raw;  // the query string or body as it came; null for large ones
};

inline constexpr std::int64_t cgi_body_max = 83886080;  // bytes of a body kept in memory (80 MiB)
inline constexpr std::int32_t cgi_raw_max = 102399;     // bytes of a body or query kept as `raw`
inline constexpr std::int32_t cgi_pairs_max = 1048576;  // form fields; more is -1

// Results of cgi_parse; 0 is success.
enum cgi_parse_error : int {
    cgi_refused = -1,       // method, screened query, too many fields, out of memory for copies
    cgi_no_length = -2,     // POST without a usable CONTENT_LENGTH
    cgi_too_long = -3,      // body above cgi_body_max
    cgi_no_memory = -4,     // body buffer not allocated
    cgi_read_error = -5,    // the body could not be read or spooled whole
    cgi_refused_file = -6,  // an uploaded file name was refused
    cgi_low_space = -8,     // no room to spool an upload
};

// Zeroes the record. Returns 0.
int cgi_init(cgi* input);
// Frees all that the record owns and zeroes it. Null is ignored.
void cgi_deinit(cgi* input);

// The value of a CGI variable: an override (exact name), else the request's (request_streams.h);
// null when neither has it. The text dies with the next cgi_set_var of that name.
const char* cgi_get_var(const cgi* input, const char* name);
// Sets or replaces an override with copies of both texts; a null value stays null. Returns 0, or -1
// without memory.
[[nodiscard]] int cgi_set_var(cgi* input, const char* name, const char* value);
// Copies the overrides of `src` over those of `dst`. Result as cgi_set_var; at -1 some are copied.
int cgi_copy_vars(cgi* dst, const cgi* src);

// True when the request is a POST and its URI names one of the two pages whose uploads are spooled
// to disk. cgi_parse then writes the body to flash, so whoever calls it has checked the caller
// first, or calls cgi_discard_body instead.
bool cgi_is_spooled_upload(const cgi* input);
// Reads the request's body to its end or its stated length, and drops it.
void cgi_discard_body(const cgi* input);

// Reads the request: query string of a GET (screened for markup), body of a POST from the
// request's stream. What an earlier parse left is dropped first. Returns 0 or a cgi_parse_error;
// after an error there are no fields.
[[nodiscard]] int cgi_parse(cgi* input);
// Parse a caller's buffer as a form. `mode` -1: multipart when CONTENT_TYPE says so; other
// non-zero: multipart; 0: URL-encoded. cgi_parse_ii leaves `data` as it is and cuts up a copy;
// cgi_parse_iii cuts up `data`, which must have one writable byte after its `len` and outlive the
// record. Either way `raw` points to `data`. Both return 0 at once for an empty buffer, -1 for a
// form that cannot be parsed, cgi_refused_file for a refused file name.
// REQUIRES: `data` does not belong to the record.
[[nodiscard]] int cgi_parse_ii(cgi* input, char* data, std::int32_t len, int mode);
[[nodiscard]] int cgi_parse_iii(cgi* input, char* data, std::int32_t len, int mode);

// The untouched query string or small body; null for large bodies and uploads. Writable in place.
char* cgi_query_string(const cgi* input);

// A form field by exact name; with duplicates any one of them; null when there is none.
const cgi_pair* cgi_named_pair(const cgi* input, const char* name);
// The value of that field, "" for one that came without "="; null when there is none.
const char* cgi_named_value(const cgi* input, const char* name);
// Writes all fields into the answer, for debugging.
void cgi_show_allpair(const cgi* input);
