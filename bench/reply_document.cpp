#include "reply_document.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <random>

namespace {

constexpr int rows_per_table = 1000;

constexpr const char* opening = R"(<re>
<error>2 access points &amp; 1 standby controller did not answer</error>
<data name="Controller">Core &lt;A&gt;</data>
<data name="apcount">1432</data>
<data name="AP limit"> 2048 </data>
<cmd name='hostname'>wlc-äußeres-tor</cmd>
)";
constexpr const char* table_end = "</t>\n";
constexpr const char* closing = "</re>\n";

constexpr std::array models = {"AX-210", "AX-310", "AX-310", "MESH-7 outdoor", "RAP-2"};
constexpr std::array groups = {"default", "Lobby &amp; Café", "lab", "warehouse", "default"};
constexpr std::array flags = {"", "", "2", "IL", "r"};
constexpr std::array places = {"Hall 3",
                               "Bürogebäude Süd, 2. Stock",
                               "",
                               "Roof &lt;east&gt; &quot;B&quot;",
                               "<![CDATA[Lab <3> & stairs]]>",
                               "Café",
                               " ",
                               "Gate 17, behind the counter",
                               "Hall 4",
                               "東京 3F"};

struct reply_writer {
    std::string text;
    std::minstd_rand random;  // the standard fixes its sequence
};

unsigned below(reply_writer* reply, unsigned limit) {
    return static_cast<unsigned>(reply->random()) % limit;
}

template <std::size_t N>
const char* one_of(reply_writer* reply, const std::array<const char*, N>& texts) {
    return texts[below(reply, N)];
}

[[gnu::format(printf, 2, 3)]] void add(reply_writer* reply, const char* format, ...) {
    char piece[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(piece, sizeof piece, format, args);
    va_end(args);
    reply->text += piece;
}

void add_table_start(reply_writer* reply, int number) {
    add(reply, "<t tn=\"AP database %d\" nc=\"8\">\n", number);
    add(reply, "<th><h>Name</h><h>Group</h><h>AP type</h><h>IP address</h>");
    add(reply, "<h>Status</h><h>Flags</h><h>serial #</h><h>Location</h></th>\n");
}

void add_access_point(reply_writer* reply, int number) {
    add(reply, "<r><c>ap-%04d</c><c>%s</c>", number, one_of(reply, groups));
    add(reply, "<c>%s</c><c>10.%u.%u.%u</c>", one_of(reply, models), below(reply, 64),
        below(reply, 256), below(reply, 256));
    add(reply, "<c>Up %ud:%uh:%um</c>", below(reply, 400), below(reply, 24), below(reply, 60));
    add(reply, "<c>%s</c><c>CN%08u</c>", one_of(reply, flags), below(reply, 100'000'000));
    add(reply, "<c>%s</c></r>\n", one_of(reply, places));
}

}  // namespace

std::string reply_document(std::size_t size) {
    reply_writer reply{.text = opening, .random = {}};
    for (int number = 0; reply.text.size() < size; ++number) {
        const bool is_first = number % rows_per_table == 0;
        if (is_first && number > 0) reply.text += table_end;
        if (is_first) add_table_start(&reply, number / rows_per_table + 1);
        add_access_point(&reply, number);
    }
    return reply.text + table_end + closing;
}
