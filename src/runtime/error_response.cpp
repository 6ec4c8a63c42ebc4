#include "runtime/error_response.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "runtime/escape_table.h"
#include "runtime/strbuf.h"
#include "runtime/text.h"

namespace {

constexpr std::size_t reason_size = 1024;

constexpr escape_table error_text = [] {
    escape_table table;
    table.set('&', "&amp;");
    table.set('<', "&lt;");
    table.set('>', "&gt;");
    return table;
}();

// Where the bound cut a reference in two, what is left of it goes as well.
void drop_split_reference(char* reason, std::size_t length) {
    constexpr std::size_t longest_reference = 6;
    const std::string_view text{reason, length};
    const std::size_t start = text.rfind('&');
    if (start == std::string_view::npos || length - start >= longest_reference) return;
    if (text.find(';', start) == std::string_view::npos) reason[start] = '\0';
}

// What stands around a reason.
struct error_document {
    const char* before;
    const char* after;
};

constexpr char status_before[] = "<qorin>\n  <status>Error</status>\n  <reason>";
constexpr char status_after[] = "</reason>\n</qorin>\n";
constexpr error_document status_document{.before = status_before, .after = status_after};
constexpr error_document command_document{.before = "<re><ERROR>", .after = "</ERROR></re>\n"};

// The texts in one, without their NULs.
template <std::size_t... Sizes>
constexpr auto joined(const char (&... texts)[Sizes]) {
    std::array<char, (... + (Sizes - 1))> all{};
    auto end = all.begin();
    ((end = std::copy_n(texts, Sizes - 1, end)), ...);
    return all;
}

constexpr auto memory_response = joined(xml_header, status_before, memory_reason, status_after);

[[gnu::format(printf, 3, 0)]] void refuse(wms_strbuf* response, const error_document& document,
                                          const char* format, va_list args) {
    char reason[reason_size];
    const int n = std::vsnprintf(reason, reason_size, format, args);
    if (n < 0) reason[0] = '\0';
    if (n >= static_cast<int>(reason_size)) drop_split_reference(reason, reason_size - 1);
    wms_strbuf_clear(response);
    wms_strbuf_fmt(response, "%s%s%s%s", xml_header, document.before, reason, document.after);
}

}  // namespace

std::string_view memory_error_response() {
    return {memory_response.data(), memory_response.size()};
}

void wuic_generic_error(wms_strbuf* response, const char* format, ...) {
    va_list args;
    va_start(args, format);
    refuse(response, status_document, format, args);
    va_end(args);
}

void wuic_generic_error_ii(wms_strbuf* response, const char* format, ...) {
    va_list args;
    va_start(args, format);
    refuse(response, command_document, format, args);
    va_end(args);
}

const char* error_text_escape(char* out, std::size_t out_size, const char* text) {
    if (out_size == 0) return out;
    bounded_writer to = bounded_writer_new(out, static_cast<std::int64_t>(out_size - 1));
    escape_append(&to, text_or_null(text), error_text);
    out[to.used < to.size ? to.used : to.size] = '\0';
    return out;
}
