// Sessions looked up, made and removed with texts of a client's: in every statement each text is
// one literal with just that text, or there is no statement; and a session found is never one of a
// shortened name.
#include <array>
#include <optional>
#include <vector>

#include "runtime/strbuf.h"

#include "auth/session_store.h"

#include "fake_database.h"
#include "fuzz_input.h"
#include "sql_tokens.h"

namespace {

using std::string_view;

enum text_of : std::size_t { sid, ip, user, role, path, text_count };
enum class step : std::uint8_t { look_up, make, make_remote, remove };

using session_texts = std::array<std::string, text_count>;

const session_texts harmless{"v0v", "v1v", "v2v", "v3v", "v4v"};

struct session_run {
    std::vector<sent_statement> sent;
    session_record record{};
    char made[session_sid_size] = "";
    int result = 0;
};

session_run run_step(step what, const fake_database& settings, const session_texts& texts) {
    the_fake_database() = settings;
    const fuzz_request request;
    session_run run;
    scoped_strbuf text;
    const exact_text id(texts[sid]);
    const exact_text name(texts[user]);
    const exact_text group(texts[role]);
    switch (what) {
        case step::look_up:
            run.result = wuic_session_retrieve(nullptr, request.input, &run.record, id.data());
            break;
        case step::remove:
            run.result = wuic_session_delete(nullptr, id.data());
            break;
        case step::make:
        case step::make_remote:
            run.result =
                wuic_session_create(nullptr, text, run.made, texts[ip].c_str(), name.data(),
                                    group.data(), what == step::make_remote, texts[path].c_str());
            break;
    }
    run.sent = the_fake_database().sent;
    return run;
}

std::size_t escaped_size(string_view text) {
    const auto doubled = std::ranges::count_if(
        text, [](char c) { return string_view{"\"'\\"}.find(c) != string_view::npos; });
    return text.size() + std::size_t(doubled);
}

// Whether texts of these lengths get into a statement at all.
bool is_fit(step what, const session_texts& texts) {
    if (what == step::look_up || what == step::remove) {
        const bool whole = what == step::remove || texts[sid].size() < 64;
        return whole && !texts[sid].empty() && escaped_size(texts[sid]) < 128;
    }
    return texts[user].size() < 128 && texts[role].size() < 128 && escaped_size(texts[ip]) < 128;
}

// What stands where the harmless statement has this literal.
std::string expected_literal(const std::string& plain, const session_texts& texts,
                             const session_run& real, const session_run& harmless_run) {
    if (plain == harmless_run.made) return real.made;
    const auto* const from = std::ranges::find(harmless, plain);
    if (from == harmless.end()) return plain;
    const auto which = static_cast<std::size_t>(from - harmless.begin());
    return which == path && escaped_size(texts[path]) > 255 ? "" : texts[which];
}

void check_statement(std::size_t at, const session_run& real, const session_run& plain,
                     const session_texts& texts) {
    expect(real.sent[at].reads_backslashes, "the server reads backslashes as our escaper writes");
    const auto tokens = sql_tokens_of(real.sent[at].text, true);
    const auto expected = sql_tokens_of(plain.sent[at].text, true);
    expect(expected.has_value(), "a harmless request makes a readable statement");
    expect(tokens.has_value(), "nothing in a statement is open or foreign");
    expect(same_but_for_literals(*tokens, *expected), "a text stays inside its literal");
    for (std::size_t i = 0; i < tokens->size(); ++i) {
        if ((*tokens)[i].is != sql_token::literal) continue;
        const std::string wanted = expected_literal((*expected)[i].text, texts, real, plain);
        expect((*tokens)[i].text == wanted, "a literal is the text that was given");
    }
}

void check_record(const session_run& real, const fake_database& settings,
                  const session_texts& texts) {
    expect(real.record.found == (real.result == 0), "the result tells of a session");
    if (!real.record.found) return;
    expect(real.record.sid == texts[sid], "the session is the one that was asked for");
    expect(real.record.user == settings.other && real.record.role == settings.cell,
           "a user and a role are whole");
}

}  // namespace

// The first character says what is done and how the server answers; lines follow: two of
// what the server holds, then the texts.
void fuzz_one(std::string_view data) {
    fuzz_fields fields{data};
    const std::uint8_t how = fields.byte();
    const auto text = [&fields] {
        const string_view line = fields.field();
        return std::string(line.substr(0, line.find('\0')));
    };
    fake_database settings;
    settings.refused = (how >> 2) & 7;
    settings.cell = text();
    settings.other = text();
    session_texts texts;
    for (std::string& one : texts)
        one = text();

    const auto what = static_cast<step>(how & 3);
    const session_run real = run_step(what, settings, texts);
    const session_run plain = run_step(what, settings, harmless);
    const std::size_t statements = is_fit(what, texts) ? plain.sent.size() : 0;
    expect(real.sent.size() == statements, "a text that does not fit makes no statement");
    for (std::size_t i = 0; i < statements; ++i)
        check_statement(i, real, plain, texts);
    if (statements > 0) expect(real.result == plain.result, "the text does not change the outcome");
    if (statements == 0) expect(real.result != 0, "without a statement there is no success");
    if (what == step::look_up) check_record(real, settings, texts);
}
