// Page templates: all kinds of output hold the same page, and no value, be it never so hostile, has
// a file read or a tag filled.
//
// An input: a byte that sizes the fixed output, then texts that end at a byte 0x1E: the template,
// and name and value of each variable. Every value is also the file of that name; the file system
// is replaced at link time.
#include <cerrno>
#include <cstdlib>

#include "platform/ownership.h"

#include "runtime/escape.h"
#include "runtime/sfmt.h"

#include "fuzz_server.h"

namespace {

using std::string_view;

struct variable {
    std::string name;
    std::string value;
};

struct page {
    std::string text;
    std::vector<variable> variables;
    std::vector<variable> files;
};

// A page that includes itself grows by powers: so many files there are.
constexpr std::size_t files_max = 60;

// The files there are, and the paths that were asked for.
struct file_server {
    const std::vector<variable>* files = nullptr;
    std::vector<std::string> asked;
};

file_server& served() {
    static file_server server;
    return server;
}

const std::string* file_of(const std::vector<variable>& files, string_view path) {
    const auto found = std::ranges::find(files, path, &variable::name);
    return found != files.end() ? &found->value : nullptr;
}

}  // namespace

// What the linker puts in the place of sfmt_read_all (fuzz/CMakeLists.txt).
int served_read_all(char** data, std::int32_t* size,
                    const char* path) asm("__wrap__Z13sfmt_read_allPPcPiPKc");

int served_read_all(char** data, std::int32_t* size, const char* path) {
    served().asked.emplace_back(path);
    const bool is_there = served().asked.size() <= files_max;
    const std::string* const text = is_there ? file_of(*served().files, path) : nullptr;
    *data = nullptr;
    *size = 0;
    if (text == nullptr) return ENOENT;
    *data = static_cast<char*>(std::malloc(text->size() + 1));
    text->copy(*data, text->size());
    (*data)[text->size()] = '\0';
    *size = static_cast<std::int32_t>(text->size());
    return 0;
}

namespace {

struct filled_list {
    sfmt vars{};
    explicit filled_list(const std::vector<variable>& variables) {
        sfmt_init(&vars);
        for (const auto& [name, value] : variables) {
            const exact_text name_text(name);
            const exact_text value_text(value);
            expect(sfmt_add(&vars, name_text.data(), name_text.length(), value_text.data(),
                            value_text.length()) == 0,
                   "a variable is added");
        }
    }
    ~filled_list() { sfmt_deinit(&vars); }
    filled_list(const filled_list&) = delete;
    filled_list& operator=(const filled_list&) = delete;
};

std::string render_growing(const page& from, const filled_list& list) {
    served() = {.files = &from.files, .asked = {}};
    const exact_bytes text(from.text);
    scoped_strbuf buffer;
    const int length = sfmt_fmt_iii(&list.vars, buffer, text.data(), text.length());
    expect(length >= 0 && length == buffer.buf.length, "a page is rendered");
    return {buffer.buf.data != nullptr ? buffer.buf.data : "", static_cast<std::size_t>(length)};
}

// What a fixed output of `room` bytes holds of the page, and that its length is told.
void check_fixed(const page& from, const filled_list& list, const std::string& whole,
                 std::size_t room) {
    const exact_bytes text(from.text);
    const exact_bytes storage("", room);
    served().asked.clear();
    const int result = sfmt_fmt(&list.vars, storage.data(), static_cast<std::int32_t>(room),
                                text.data(), text.length());
    const bool fits = whole.size() + 1 < room;
    const auto length = static_cast<int>(whole.size());
    expect(result == (fits ? length : -length), "a fixed output tells the page's length");
    if (room > 0)
        expect(whole.substr(0, room - 1) ==
                   string_view(storage.data(), std::min(whole.size(), room - 1)),
               "a fixed output holds the page's beginning");
}

void check_block(const page& from, const filled_list& list, const std::string& whole) {
    const exact_bytes text(from.text);
    char* block = nullptr;
    std::int32_t length = -1;
    served().asked.clear();
    const int result = sfmt_fmt_ii(&list.vars, &block, &length, text.data(), text.length());
    const malloc_text owned{block};
    expect(
        result == -static_cast<int>(whole.size()) && (block != nullptr) == !whole.empty() &&
            string_view(block != nullptr ? block : "", static_cast<std::size_t>(length)) == whole,
        "a block holds the page");
}

std::ptrdiff_t count_markup(string_view text) {
    return std::ranges::count_if(
        text, [](char c) { return string_view{"<>\"'"}.find(c) != string_view::npos; });
}

// The same page with other values reads the same files, and with escaped ones it has the markup of
// a page without any.
void check_values(page from, const std::vector<std::string>& asked) {
    page escaped = from;
    for (variable& one : from.variables)
        one.value.clear();
    const std::string without_values = render_growing(from, filled_list(from.variables));
    expect(served().asked == asked, "no value makes a file be read");
    for (variable& one : escaped.variables) {
        scoped_strbuf text;
        const auto length = static_cast<std::int32_t>(one.value.size());
        if (length > 0) one.value = wuic_sgmlesc_ii(text, one.value.data(), length);
    }
    const std::string with_values = render_growing(escaped, filled_list(escaped.variables));
    expect(count_markup(with_values) == count_markup(without_values),
           "an escaped value adds no markup to a page");
}

}  // namespace

void fuzz_one(string_view data) {
    const fuzz_descriptor_check descriptors;
    fuzz_fields fields{data};
    const std::size_t room = fields.byte();
    page from;
    from.text = fields.field('\x1E');
    while (!fields.rest.empty() && from.variables.size() < 64) {
        const std::string name = until_nul(fields.field('\x1E'));
        const std::string value(fields.field('\x1E'));
        from.files.push_back({name, value});
        from.variables.push_back({name, until_nul(value)});
    }
    const filled_list list(from.variables);
    const std::string whole = render_growing(from, list);
    const std::vector<std::string> asked = served().asked;
    // A rendering into a block is made more than once, and all of it counts as one.
    if (asked.size() > files_max / 4) return;
    check_fixed(from, list, whole, room);
    check_block(from, list, whole);
    check_values(from, asked);
}
