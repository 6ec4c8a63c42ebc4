// Reading a request: the query string of a GET, the body of a POST, or a caller's buffer.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

#include "platform/ownership.h"

#include "runtime/body_input.h"
#include "runtime/cgi.h"
#include "runtime/form.h"
#include "runtime/log.h"
#include "runtime/multipart.h"
#include "runtime/request.h"
#include "runtime/screening.h"
#include "runtime/spool.h"
#include "runtime/url.h"

namespace {

constexpr char multipart_type[] = "multipart/form-data; boundary=";

// A terminated copy of counted bytes.
malloc_text copy_bytes(const char* bytes, std::size_t length) {
    malloc_text copy{static_cast<char*>(std::malloc(length + 1))};
    if (!copy) return copy;
    std::memcpy(copy.get(), bytes, length);
    copy.get()[length] = '\0';
    return copy;
}

// Forgets what an earlier parse left; the array of entries is kept for the next one.
void drop_form(cgi* input) {
    input->pairs.count = 0;
    if (input->body_owned != 0) std::free(input->body);
    if (input->raw_owned != 0) std::free(input->raw);
    input->body_owned = input->raw_owned = 0;
    input->body = input->raw = nullptr;
}

void own_body(cgi* input, malloc_text body) {
    input->body = body.release();
    input->body_owned = 1;
}

int keep_raw(cgi* input, const char* bytes, std::size_t length) {
    if (length > std::size_t{cgi_raw_max}) return 0;
    malloc_text copy = copy_bytes(bytes, length);
    if (!copy) return -1;
    input->raw = copy.release();
    input->raw_owned = 1;
    return 0;
}

bool is_multipart(const cgi* input) {
    const char* const type = cgi_get_var(input, "CONTENT_TYPE");
    return type != nullptr && std::strstr(type, multipart_type) != nullptr;
}

// A failed parse leaves no fields: half a form, unsorted, would answer lookups at random.
int parse_form(cgi* input, char* text, std::size_t length, bool multipart) {
    text[length] = '\0';
    const int result = multipart ? multipart_parse(input, text, length)
                                 : form_parse_urlencoded(input, text, length);
    if (result != 0) input->pairs.count = 0;
    return result;
}

bool is_refused_query(std::string_view query) {
    if (screening_finds_tag(query)) return true;
    const malloc_text decoded = copy_bytes(query.data(), query.size());
    if (!decoded) return true;
    const auto size = static_cast<std::int32_t>(query.size());
    const int length = cgi_unescape_url(decoded.get(), size, decoded.get(), size);
    return screening_finds_event_handler({decoded.get(), static_cast<std::size_t>(length)});
}

int parse_get(cgi* input) {
    const char* const text = cgi_get_var(input, "QUERY_STRING");
    if (text == nullptr || *text == '\0') return 0;
    const std::string_view query{text};
    if (query.size() >= std::numeric_limits<std::int32_t>::max()) return cgi_refused;
    if (is_refused_query(query)) return cgi_refused;

    malloc_text body = copy_bytes(query.data(), query.size());
    if (!body || keep_raw(input, query.data(), query.size()) != 0) return cgi_refused;
    own_body(input, std::move(body));
    return parse_form(input, input->body, query.size(), false);
}

int read_body(char* body, std::size_t length) {
    const long got = streams_read_whole(request_current_streams(), body, length);
    if (got < 0) {
        wuic_log(log_error, "fread error in reading from stdin.");
        return cgi_read_error;
    }
    if (static_cast<std::size_t>(got) < length) {
        wuic_log(log_error, "EOF rached in reading stdin.");
        return cgi_read_error;
    }
    return 0;
}

int parse_post_in_memory(cgi* input, std::int64_t content_length) {
    const auto shown = static_cast<long long>(content_length);
    if (content_length > cgi_body_max) {
        wuic_log(log_error, "Current content length %lld exceed max content length %lld", shown,
                 static_cast<long long>(cgi_body_max));
        return cgi_too_long;
    }
    const auto length = static_cast<std::size_t>(content_length);
    malloc_text body{static_cast<char*>(std::malloc(length + 1))};
    if (!body) {
        wuic_log(log_error, "Unable to malloc (%lld) for buffer.", shown);
        return cgi_no_memory;
    }
    if (const int error = read_body(body.get(), length)) return error;
    if (keep_raw(input, body.get(), length) != 0) return cgi_refused;
    own_body(input, std::move(body));
    return parse_form(input, input->body, length, is_multipart(input));
}

int parse_post(cgi* input) {
    const auto length = body_content_length(input);
    if (!length || *length < 0) {
        wuic_log(log_error, "Unable to obtain content length from POST operation");
        return cgi_no_length;
    }
    if (*length == 0) return 0;
    if (!cgi_is_spooled_upload(input)) return parse_post_in_memory(input, *length);
    const int result = spool_upload(input, *length);
    if (result != 0) input->pairs.count = 0;
    return result;
}

bool method_is(const cgi* input, const char* method) {
    const char* const text = cgi_get_var(input, "REQUEST_METHOD");
    return text != nullptr && std::strcmp(text, method) == 0;
}

}  // namespace

bool cgi_is_spooled_upload(const cgi* input) {
    const char* const text = cgi_get_var(input, "REQUEST_URI");
    if (text == nullptr || !method_is(input, "POST")) return false;
    return std::ranges::any_of(spooled_pages, [uri = std::string_view{text}](auto page) {
        return uri.find(page) != std::string_view::npos;
    });
}

void cgi_discard_body(const cgi* input) {
    body_discard(body_content_length(input).value_or(0));
}

int cgi_parse(cgi* input) {
    drop_form(input);
    if (method_is(input, "GET")) return parse_get(input);
    if (method_is(input, "POST")) return parse_post(input);
    return cgi_refused;
}

int cgi_parse_ii(cgi* input, char* data, std::int32_t len, int mode) {
    if (len < 1 || data == nullptr) return 0;
    const auto length = static_cast<std::size_t>(len);
    malloc_text body = copy_bytes(data, length);
    if (!body) return -1;
    drop_form(input);
    own_body(input, std::move(body));
    input->raw = data;
    return parse_form(input, input->body, length, mode == -1 ? is_multipart(input) : mode != 0);
}

int cgi_parse_iii(cgi* input, char* data, std::int32_t len, int mode) {
    if (len < 1 || data == nullptr) return 0;
    drop_form(input);
    input->body = input->raw = data;
    return parse_form(input, data, static_cast<std::size_t>(len),
                      mode == -1 ? is_multipart(input) : mode != 0);
}
