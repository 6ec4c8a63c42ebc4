// Measures how the cost of each stage grows: at three sizes, each four times the one before. Ends
// with 1 when a stage's cost per byte or item grows too much from the smallest to the largest.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <malloc.h>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/cgi.h"
#include "runtime/escape.h"
#include "runtime/form.h"
#include "runtime/multipart.h"
#include "runtime/request.h"
#include "runtime/screening.h"
#include "runtime/sfmt.h"
#include "runtime/sgml_text.h"
#include "runtime/strbuf.h"
#include "runtime/url.h"

#include "backend/cli_data.h"
#include "backend/cli_reader.h"
#include "backend/command_text.h"
#include "backend/sgml_tokenizer.h"

#include "reply_document.h"

namespace {

using std::string_view;

constexpr std::size_t step = 4;
constexpr std::size_t smallest = 512UL << 10;  // bytes; beyond the innermost caches already
constexpr int rounds = 7;
// Sorting costs a logarithm more, and the largest size fits into no cache; a cost that grows with
// the square has 16 here.
constexpr double growth_max = 4.0;

// What is read in place is copied anew for each round; the copy is not timed.
using work = std::function<void(std::string* copy)>;

struct stage {
    const char* name;
    std::function<std::string(std::size_t size)> input;
    work run;
};

std::string repeated(string_view piece, std::size_t size) {
    std::string text;
    while (text.size() < size)
        text += piece;
    text.resize(size);
    return text;
}

// Pieces with a number in them; they do not come in order, so that a sort has work to do.
std::string numbered(string_view head, string_view tail, std::size_t size) {
    std::string text;
    for (unsigned number = 1; text.size() < size; ++number) {
        char digits[16];
        std::snprintf(digits, sizeof digits, "%08x", number * 2654435761U);
        text.append(head).append(digits).append(tail);
    }
    return text;
}

std::string multipart_body(std::size_t size) {
    return numbered("--XyZ\r\nContent-Disposition: form-data; name=\"n", "\"\r\n\r\nv\r\n", size) +
           "--XyZ--";
}

std::string one_table(std::size_t size) {
    return "<re><t tn='T' nc='2'><th><h>a</h><h>b</h></th>" +
           numbered("<r><c>", "</c><c></c></r>", size) + "</t></re>";
}

std::int32_t length_of(const std::string* text) {
    return static_cast<std::int32_t>(text->size());
}

void parse(std::string* copy, int multipart) {
    cgi form;
    cgi_init(&form);
    if (cgi_set_var(&form, "CONTENT_TYPE", "multipart/form-data; boundary=XyZ") != 0) std::abort();
    const std::int32_t length = length_of(copy);
    copy->push_back('\0');
    if (cgi_parse_iii(&form, copy->data(), length, multipart) != 0 || form.pairs.count == 0) {
        std::abort();
    }
    cgi_deinit(&form);
}

void parse_form(std::string* copy) {
    parse(copy, 0);
}

void parse_multipart(std::string* copy) {
    parse(copy, 1);
}

void find_boundary(std::string* copy) {
    boundary delimiter;
    if (!boundary_prepare(&delimiter, "boundary=-----------------------X")) std::abort();
    if (boundary_find(delimiter, *copy) != string_view::npos) std::abort();
}

void screen(std::string* copy) {
    if (screening_finds_tag(*copy) || screening_finds_event_handler(*copy)) std::abort();
}

void read_tokens(std::string* copy) {
    sgml_tokenizer tokens;
    sgml_tokenizer_init(&tokens, copy->data(), length_of(copy));
    while (sgml_tokenizer_next(&tokens) > 0) {
    }
}

void read_model(std::string* copy) {
    scoped_cli_data model;
    const std::int32_t length = length_of(copy);
    copy->push_back('\0');
    wuic_cli_data_parse(model, copy->data(), length);
    const bool empty = wuic_cli_data_get_num_tables(model) + wuic_cli_data_get_num_data(model) == 0;
    if (empty) std::abort();
}

void read_text(std::string* copy) {
    sgml_tokenizer tokens;
    sgml_tokenizer_init(&tokens, copy->data(), length_of(copy));
    scoped_strbuf text;
    sgml_tokenizer_next(&tokens);
    if (cli_reader_text(&tokens, text, text_form::markup).empty()) std::abort();
}

void escape_markup(std::string* copy) {
    scoped_strbuf out;
    if (st_esc2(out, copy->data(), length_of(copy), false, true) == 0) std::abort();
}

void escape_script(std::string* copy) {
    scoped_strbuf out;
    wuic_jsesc_ii(out, copy->data(), length_of(copy));
}

template <auto convert>
void convert_in_place(std::string* copy) {
    static_cast<void>(convert(copy->data(), length_of(copy), copy->data(), length_of(copy)));
}

void escape_url(std::string* copy) {
    std::string out(copy->size() * 3 + 1, '\0');
    if (cgi_escape_url(out.data(), length_of(&out), copy->data(), length_of(copy), false) <= 0) {
        std::abort();
    }
}

void decode_references(std::string* copy) {
    command_unencode(copy->data());
}

void append_pieces(std::string* copy) {
    scoped_strbuf out;
    const string_view text = *copy;
    for (std::size_t at = 0; at < text.size(); at += 16)
        wms_strbuf_fmt(out, "%.*s", 16, text.data() + at);
}

void render_template(std::string* copy) {
    sfmt vars;
    sfmt_init(&vars);
    sfmt_add(&vars, "name", 0, "value", 0);
    scoped_strbuf out;
    sfmt_fmt_iii(&vars, out, copy->data(), length_of(copy));
    sfmt_deinit(&vars);
}

std::function<std::string(std::size_t)> of(string_view piece) {
    return [piece](std::size_t size) { return repeated(piece, size); };
}

std::function<std::string(std::size_t)> each(string_view head, string_view tail) {
    return [head, tail](std::size_t size) { return numbered(head, tail, size); };
}

std::function<std::string(std::size_t)> element(string_view piece) {
    return [piece](std::size_t size) { return "<d>" + repeated(piece, size) + "</d>"; };
}

const stage stages[] = {
    {"form, one field", of("abcdefgh"), parse_form},
    {"form, one escaped field", of("%41+"), parse_form},
    {"form, fields", each("n", "=0123456789012345678901234567890123456789&"), parse_form},
    {"form, equal names", of("nnnnnnnn=v&"), parse_form},
    {"multipart, parts", multipart_body, parse_multipart},
    {"multipart, almost a delimiter", of("-------------------------\r\n"), find_boundary},
    {"screening of a query", of("%3C'on=("), screen},
    {"tokens", reply_document, read_tokens},
    {"tokens, nested", of("<r><c a='1'/></r>"), read_tokens},
    {"tokens, deep", of("<r>"), read_tokens},
    {"model", reply_document, read_model},
    {"model, one table", one_table, read_model},
    {"model, named values",
     [](std::size_t size) {
         return "<re>" + numbered("<data name='", "'>v</data>", size) + "</re>";
     },
     read_model},
    {"text of an element, many pieces", element("a<b/>&amp;"), read_text},
    {"escaping for markup", reply_document, escape_markup},
    {"escaping for markup, all references", of("<>&\"'\x01\xff"), escape_markup},
    {"escaping for scripts", reply_document, escape_script},
    {"compaction", of("'a&amp;b\\'\"c\""), convert_in_place<sgml_tokenizer_compact>},
    {"decoding of references", of("&lt;a&#65;&x"), convert_in_place<sgml_tokenizer_unescape>},
    {"decoding of a command", of("&amp;amp;&lt;x"), decode_references},
    {"URL escaping", of("a/b c"), escape_url},
    {"URL decoding", of("a%2Fb+c"), convert_in_place<cgi_unescape_url>},
    {"appending small pieces", of("abcdefgh"), append_pieces},
    {"template", of("text <%name%> <%none%><%-- c --%>"), render_template},
};

// Milliseconds of this process's own: others of the machine do not count.
double processor_time() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// The shortest of some rounds.
double timed(const stage& what, std::size_t size) {
    const std::string input = what.input(size);
    double best = 1e9;
    for (int round = 0; round < rounds; ++round) {
        std::string copy;
        copy.reserve(input.size() + 1);
        copy = input;
        const double start = processor_time();
        what.run(&copy);
        best = std::min(best, processor_time() - start);
    }
    return best;
}

}  // namespace

int main() {
    // Memory is kept from round to round: what the kernel takes to give it is not what is measured.
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    const request_record request;
    bool linear = true;
    std::printf(
        "| stage | 0.5 MiB [ms] | 2 MiB [ms] | 8 MiB [ms] | 8 to 0.5, per byte |\n"
        "|---|---|---|---|---|\n");
    for (const stage& what : stages) {
        const double small = timed(what, smallest);
        const double middle = timed(what, smallest * step);
        const double large = timed(what, smallest * step * step);
        const double ratio = large / small / static_cast<double>(step * step);
        const bool fits = ratio <= growth_max;
        linear = linear && fits;
        std::printf("| %s | %.2f | %.2f | %.2f | %.2f%s |\n", what.name, small, middle, large,
                    ratio, fits ? "" : " (too much)");
    }
    return linear ? EXIT_SUCCESS : EXIT_FAILURE;
}
