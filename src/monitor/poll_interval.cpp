#include "monitor/poll_interval.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "runtime/session_record.h"
#include "runtime/strbuf.h"

#include "backend/cli_helper.h"
#include "backend/sgml_tokenizer.h"

namespace {

constexpr std::size_t number_max = 30;  // characters of a cell that are read as a number
constexpr long milliseconds_per_second = 1000;

std::string_view text_of(const wms_strbuf& buf) {
    return {buf.data != nullptr ? buf.data : "", static_cast<std::size_t>(buf.length)};
}

int seconds_of(std::string_view milliseconds) {
    char number[number_max + 1] = "";
    milliseconds.copy(number, number_max);
    const long seconds = std::strtol(number, nullptr, 10) / milliseconds_per_second;
    return static_cast<int>(std::clamp<long>(seconds, 0, INT_MAX));
}

// The cell behind the one that names the interval.
int find_interval(const char* reply, std::int32_t length) {
    sgml_tokenizer tokenizer;
    sgml_tokenizer_init(&tokenizer, reply, length);
    scoped_strbuf cell;
    bool named = false;
    std::optional<int> seconds;
    while (sgml_tokenizer_next(&tokenizer) > 0) {
        const sgml_token& token = tokenizer.token;
        if (sgml_tokenizer_is_tag(&token, "ERROR", false)) return 0;
        if (sgml_tokenizer_is_tag(&token, "error", false)) return 0;
        const bool is_cell = sgml_tokenizer_is_tag(&token, "c", false) &&
                             sgml_tokenizer_stack_is_tag(&tokenizer, "r", 0);
        if (!is_cell || seconds) continue;
        if (st_to_str(&tokenizer, cell, true, true, false) != 0) return 0;
        if (named) seconds = seconds_of(text_of(cell.buf));
        named = text_of(cell.buf) == "poll-interval";
    }
    return seconds.value_or(0);
}

}  // namespace

int wms_get_poll_interval(const session_record* session) {
    char* output = nullptr;
    std::int32_t length = 0;
    char msg[cli_message_size];
    const int result = wuic_cli_execute(session->user, session->ip, session->sid,
                                        "show wms general", &output, &length, msg, sizeof msg);
    const malloc_text reply(output);
    if (result != 0 || !reply || msg[0] != '\0') return 0;
    return find_interval(reply.get(), length);
}
