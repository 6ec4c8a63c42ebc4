#include "monitor/warnings.h"

#include <arpa/inet.h>
#include <charconv>
#include <netinet/in.h>
#include <optional>

#include "runtime/strbuf.h"

#include "backend/sgml_tokenizer.h"

namespace {

constexpr std::uint32_t loopback_network = 127;
constexpr char no_warning[] = "<re></re>";

std::string_view text_of(const wms_strbuf& buf) {
    return {buf.data, static_cast<std::size_t>(buf.length)};
}

// Sets `value` to the text of the element of this name; false when there is none.
bool find_value(wms_strbuf* value, std::string_view basic_info, std::string_view name) {
    sgml_tokenizer tokenizer;
    sgml_tokenizer_init(&tokenizer, basic_info.data(),
                        static_cast<std::int32_t>(basic_info.size()));
    while (sgml_tokenizer_next(&tokenizer) > 0) {
        if (!st_is(&tokenizer, "re", "d", nullptr)) continue;
        if (st_get_attr(value, &tokenizer, "n", true, true) < 0) return false;
        if (text_of(*value) == name) return st_to_str(&tokenizer, value, true, true, true) == 0;
    }
    return false;
}

std::optional<int> find_number(std::string_view basic_info, std::string_view name) {
    scoped_strbuf value;
    if (!find_value(value, basic_info, name)) return {};
    const std::string_view text = text_of(value.buf);
    int number = 0;
    const auto [end, error] = std::from_chars(text.begin(), text.end(), number);
    if (error != std::errc{} || end != text.end()) return {};
    return number;
}

bool is_loopback(const char* text) {
    in_addr address = {};
    return inet_pton(AF_INET, text, &address) == 1 &&
           ntohl(address.s_addr) >> IN_CLASSA_NSHIFT == loopback_network;
}

}  // namespace

int wuic_get_localip_warning(wms_strbuf* out, std::string_view basic_info) {
    scoped_strbuf value;
    const bool warns = find_value(value, basic_info, "localip") && value.buf.length > 0 &&
                       is_loopback(value.buf.data);
    wms_strbuf_fmt(out, "%s",
                   warns ? "<re><WARNING>The controller's address is a loopback address."
                           "</WARNING></re>"
                         : no_warning);
    return 0;
}

int wuic_get_ap_limit_warning(wms_strbuf* out, std::string_view basic_info) {
    const std::optional<int> count = find_number(basic_info, "apcount");
    const std::optional<int> limit = find_number(basic_info, "aplimit");
    const bool warns =
        count && limit && *limit > 0 && *count * std::int64_t{10} >= *limit * std::int64_t{9};
    if (warns) {
        wms_strbuf_fmt(out,
                       "<re><WARNING>%d of %d licensed access points are in use.</WARNING></re>",
                       *count, *limit);
    } else {
        wms_strbuf_fmt(out, "%s", no_warning);
    }
    return 0;
}
