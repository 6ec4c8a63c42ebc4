// A browser's command on its way to the controller: references decoded as their definition has it,
// which starts over after every replacement; then cut to its line and into pieces; and what a role
// may send of that, however much of it a command service skips as white space.
#include <array>
#include <vector>

#include "runtime/session_record.h"

#include "backend/command_policy.h"
#include "backend/command_text.h"

#include "fuzz_input.h"

namespace {

using std::string_view;

struct rule {
    string_view reference;
    string_view becomes;
};

// In the order of preference.
constexpr auto rules = std::to_array<rule>({{"&plus;", "+"},
                                            {"&quot;", "\\\""},
                                            {"&gt;", ">"},
                                            {"&lt;", "<"},
                                            {"&amp;", "&"},
                                            {"&apos;", "'"},
                                            {"&pct;", "%"},
                                            {"&pound;", "#"}});

bool replace_one(std::string* text) {
    for (const rule& row : rules) {
        const std::size_t at = text->find(row.reference);
        if (at == std::string::npos) continue;
        text->replace(at, row.reference.size(), row.becomes);
        return true;
    }
    return false;
}

std::string decoded(string_view text) {
    std::string result(text);
    while (replace_one(&result)) {
    }
    return result;
}

void check_pieces(string_view text, const char* separators) {
    const exact_text copy(text);
    command_pieces pieces;
    expect(command_split(copy.data(), separators, &pieces), "so few pieces fit");
    std::string joined;
    for (const char* const piece : pieces.view()) {
        const string_view word = piece;
        expect(!word.empty() && word.find_first_of(separators) == string_view::npos,
               "a piece has text, and no separator");
        joined += word;
    }
    std::string kept(text);
    std::erase_if(kept,
                  [&](char c) { return string_view{separators}.find(c) != string_view::npos; });
    expect(joined == kept, "the pieces are the text without its separators");
}

session_record of_role(string_view role) {
    session_record session{};
    session.found = true;
    role.copy(session.role, sizeof session.role - 1);
    return session;
}

void check_policy(const std::string& line) {
    constexpr string_view secret = "wuic:get-running-config-clrtxt";
    const session_record guest = of_role("guest-provisioning");
    const session_record root = of_role("root");
    const bool sent = command_is_permitted(&guest, line);
    expect(!sent || command_is_permitted(&root, line), "root may send what a guest may");
    expect(!fast_path_is_permitted(&guest, line) || sent, "the fast path takes no more");
    const auto begin = std::ranges::find_if(line, [](char c) { return c > ' ' && c < 0x7F; });
    std::string seen(begin, line.end());
    std::ranges::transform(seen, seen.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; });
    expect(!sent || !seen.starts_with(secret), "nothing in front hides what a guest may not have");
}

}  // namespace

void fuzz_one(std::string_view data) {
    const exact_text text(data);
    const std::string before(text.view());
    const std::string wanted = decoded(before);

    command_unencode(text.data(), text.length());
    expect(text.data() == wanted, "decoded as the definition has it");
    command_unencode(text.data());
    expect(text.data() == wanted, "nothing is left to decode");

    // The bound: no byte behind it takes part or is touched.
    const std::size_t half = before.size() / 2;
    const exact_text bounded(before);
    command_unencode(bounded.data(), static_cast<std::int32_t>(half));
    const std::string front = decoded(string_view{before}.substr(0, half));
    expect(string_view{bounded.data(), front.size()} == front, "decoded up to the bound");
    expect(bounded.view().substr(half) == string_view{before}.substr(half), "not behind it");

    const std::string whole = text.data();
    command_cut_context(text.data());
    const std::size_t context = whole.rfind("@@");
    expect(text.data() == whole.substr(0, context), "the context is cut at its last mark");
    const std::string line = text.data();
    command_cut_line(text.data());
    expect(text.data() == line.substr(0, line.find_first_of("\r\n")), "one line is left");
    check_policy(text.data());
    check_pieces(whole, ",");
    check_pieces(whole, "\r\n");
}
