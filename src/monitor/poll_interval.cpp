#include "monitor/poll_interval.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "runtime/strbuf.h"

#include "backend/cli_reader.h"

namespace {

constexpr std::size_t number_max = 30;  // characters of a cell that are read as a number
constexpr long milliseconds_per_second = 1000;

int seconds_of(std::string_view milliseconds) {
    char number[number_max + 1] = "";
    milliseconds.copy(number, number_max);
    const long seconds = std::strtol(number, nullptr, 10) / milliseconds_per_second;
    return static_cast<int>(std::clamp<long>(seconds, 0, INT_MAX));
}

// The cell behind the one that names the interval.
int find_interval(sgml_tokenizer* reply) {
    scoped_strbuf cell;
    bool named = false;
    std::optional<int> seconds;
    while (sgml_tokenizer_next(reply) > 0) {
        if (cli_reader_is_open(reply, "ERROR") || cli_reader_is_open(reply, "error")) return 0;
        const bool is_cell =
            cli_reader_is_open(reply, "c") && sgml_tokenizer_stack_is_tag(reply, "r", 0);
        if (!is_cell || seconds) continue;
        const std::string_view text = cli_reader_text(reply, cell, text_form::raw);
        if (named) seconds = seconds_of(text);
        named = text == "poll-interval";
    }
    return seconds.value_or(0);
}

}  // namespace

int wms_get_poll_interval(const session_record* session) {
    cli_reader reader;
    if (cli_reader_execute(&reader, session, "show wms general", nullptr) != 0) return 0;
    return find_interval(&reader.tokenizer);
}
