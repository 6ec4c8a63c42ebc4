#include "runtime/spool_parser.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "platform/ownership.h"
#include "platform/paths.h"
#include "platform/safe_open.h"

#include "runtime/body_input.h"
#include "runtime/log.h"
#include "runtime/multipart.h"
#include "runtime/strbuf.h"

namespace {

using namespace std::string_view_literals;

constexpr auto none = std::string_view::npos;
constexpr std::string_view line_end = "\r\n"sv;
constexpr std::size_t heading_window = 196;  // a part's heading must end within so many bytes

// What is in sight of the spool file: the bytes [begin, end) of the scratch space.
struct spool_window {
    int fd;
    char* bytes;
    std::size_t begin = 0;
    std::size_t end = 0;
    bool at_eof = false;

    std::string_view view() const { return {bytes + begin, end - begin}; }
};

enum class part_kind { passed_over, kept, image };

struct upload {
    boundary delimiter;
    spool_window window;
    unique_fd image;
    bool has_image = false;  // one was begun; there is no second
    bool image_is_whole = false;
    scoped_strbuf kept;  // a multipart body of its own: the parts that stay in memory
};

// Moves what is left to the front and fills the rest. Only called with little left, so that moving
// costs less than reading.
bool refill(spool_window* window) {
    const std::string_view left = window->view();
    std::memmove(window->bytes, left.data(), left.size());
    window->begin = 0;
    window->end = left.size();
    const ssize_t got =
        read_whole(window->fd, window->bytes + window->end, body_chunk - window->end);
    if (got < 0) return false;
    window->end += static_cast<std::size_t>(got);
    window->at_eof = window->end < body_chunk;
    return true;
}

// Has at least `wanted` bytes in sight, or all that is left.
bool look_ahead(spool_window* window, std::size_t wanted) {
    return window->view().size() >= wanted || window->at_eof || refill(window);
}

int keep(upload* state, std::string_view bytes) {
    if (static_cast<std::int64_t>(bytes.size()) > cgi_body_max - state->kept.buf.length) {
        return cgi_too_long;
    }
    const auto length = static_cast<std::int32_t>(bytes.size());
    if (wms_strbuf_reserve(state->kept, length) != 0) return cgi_no_memory;
    return wms_strbuf_append(state->kept, bytes.data(), length) == 0 ? 0 : cgi_no_memory;
}

int store(upload* state, part_kind kind, std::string_view bytes) {
    switch (kind) {
        case part_kind::passed_over:
            return 0;
        case part_kind::kept:
            return keep(state, bytes);
        case part_kind::image:
            break;
    }
    if (write_whole(state->image.get(), bytes.data(), bytes.size())) return 0;
    wuic_log(log_error, "write error (%d) writing to os_image.", errno);
    return cgi_read_error;
}

// Hands on everything up to the next delimiter but the line end before it, and leaves the window
// at the delimiter, or at the end of the input. A delimiter may lie across two windows: as much as
// might be the start of one, with its line end, stays in sight until more has been read.
int store_to_delimiter(upload* state, part_kind kind, bool* found) {
    spool_window& window = state->window;
    const std::size_t held_back = state->delimiter.length - 1 + line_end.size();
    for (;;) {
        const std::string_view text = window.view();
        const std::size_t at = boundary_find(state->delimiter, text);
        *found = at != none;
        if (*found) {
            window.begin += at;
            return store(state, kind, text.substr(0, at - std::min(at, line_end.size())));
        }
        const std::size_t settled = text.size() - std::min(text.size(), held_back);
        if (const int error = store(state, kind, text.substr(0, settled))) return error;
        window.begin += settled;
        if (window.at_eof) return 0;
        if (!refill(&window)) return cgi_read_error;
    }
}

int open_image(upload* state) {
    state->has_image = true;
    state->image = safe_open_for_writing(paths::os_image_new, O_WRONLY | O_TRUNC | O_SYNC, 0666);
    if (state->image) return 0;
    wuic_log(log_error, "open failed (%d) on os_image file.", errno);
    return cgi_read_error;
}

// Begins a part in the body that stays in memory, in the form in which it came.
int begin_kept(upload* state) {
    const boundary& delimiter = state->delimiter;
    if (const int error = keep(state, {delimiter.text.data(), delimiter.length})) return error;
    return keep(state, line_end);
}

// The part at the window's begin as far as its heading may reach, never beyond its end.
std::string_view heading_view(const upload* state) {
    const std::string_view text = state->window.view();
    const std::size_t reach = heading_window + line_end.size() + state->delimiter.length;
    const std::size_t end = boundary_find(state->delimiter, text.substr(0, reach));
    if (end == none) return text.substr(0, heading_window);
    return text.substr(0, std::min(heading_window, end - std::min(end, line_end.size())));
}

// Decides what becomes of the part at the window's begin, and moves past the heading of a file.
int begin_part(upload* state, part_kind* kind) {
    *kind = part_kind::passed_over;
    const std::string_view start = heading_view(state);
    part_heading heading;
    if (!part_read_heading(start, &heading)) return 0;
    if (!heading.has_filename) {
        *kind = part_kind::kept;
        return begin_kept(state);
    }
    const part_range name = heading.filename;
    if (part_is_refused_file(start.substr(name.begin, name.end - name.begin))) {
        return cgi_refused_file;
    }
    // A browser sends an empty name for a field in which no file was chosen.
    if (state->has_image || name.begin == name.end) return 0;
    *kind = part_kind::image;
    state->window.begin += heading.data;
    return open_image(state);
}

// A part that no delimiter ends was cut short and counts as none.
void forget_part(upload* state, part_kind kind, std::int32_t kept_before) {
    if (kind == part_kind::kept) state->kept.buf.length = kept_before;
}

int end_part(upload* state, part_kind kind) {
    state->image.reset();
    if (kind == part_kind::image) state->image_is_whole = true;
    return kind == part_kind::kept ? keep(state, line_end) : 0;
}

// Reads the part behind the delimiter at the window's begin. `*more` tells whether another
// delimiter follows it.
int read_part(upload* state, bool* more) {
    spool_window& window = state->window;
    *more = false;
    const std::size_t delimiter = state->delimiter.length;
    if (!look_ahead(&window, 2 * (delimiter + line_end.size()) + heading_window)) {
        return cgi_read_error;
    }
    if (!window.view().substr(delimiter).starts_with(line_end)) return 0;
    window.begin += delimiter + line_end.size();

    const std::int32_t kept_before = state->kept.buf.length;
    part_kind kind{};
    if (const int error = begin_part(state, &kind)) return error;
    if (const int error = store_to_delimiter(state, kind, more)) return error;
    if (*more) return end_part(state, kind);
    forget_part(state, kind, kept_before);
    return 0;
}

// The kept parts become the form's fields; a last delimiter closes the body that they make.
int parse_kept(cgi* input, upload* state) {
    const boundary& delimiter = state->delimiter;
    if (state->kept.buf.length == 0) return 0;
    if (const int error = keep(state, {delimiter.text.data(), delimiter.length})) return error;
    const auto length = static_cast<std::size_t>(state->kept.buf.length);
    input->body = state->kept.buf.data;
    input->body_owned = 1;
    wms_strbuf_new(state->kept);  // the block is the form's now
    return multipart_parse(input, input->body, length);
}

}  // namespace

bool write_whole(int fd, const char* bytes, std::size_t length) {
    while (length > 0) {
        const ssize_t n = ::write(fd, bytes, length);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        bytes += n;
        length -= static_cast<std::size_t>(n);
    }
    return true;
}

int spool_parse(cgi* input, int spool, char* window, bool* has_image) {
    upload state{
        .delimiter = {}, .window = {.fd = spool, .bytes = window}, .image = {}, .kept = {}};
    if (!boundary_prepare(&state.delimiter, cgi_get_var(input, "CONTENT_TYPE"))) return cgi_refused;

    bool more = false;
    if (const int error = store_to_delimiter(&state, part_kind::passed_over, &more)) return error;
    while (more) {
        if (const int error = read_part(&state, &more)) return error;
    }
    *has_image = state.image_is_whole;
    return parse_kept(input, &state);
}
