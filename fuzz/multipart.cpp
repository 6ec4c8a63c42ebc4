// Bodies of multipart/form-data in memory: the parts are those of a plain splitter, and those of a
// body that was cut are its first ones.
//
// An input: one byte that tells where the body is cut, a line with the boundary, then the body.
#include "runtime/multipart.h"

#include "plain_multipart.h"

namespace {

struct plain_form {
    int result = 0;
    std::vector<plain_part> parts;
};

plain_form plain_reading(std::string_view body, const std::string& delimiter) {
    plain_form form;
    for (const plain_piece& piece : plain_pieces(body, delimiter)) {
        const auto part =
            piece.ended ? plain_read_part(piece.text, piece.text.size()) : std::nullopt;
        if (!part) continue;
        if (part->filename && plain_is_refused_file(*part->filename)) return {cgi_refused_file, {}};
        form.parts.push_back(plain_as_field(*part));
    }
    return form;
}

plain_form parse_sent(const std::string& type, std::string_view body) {
    fuzz_stdin(body);
    const fuzz_environment environment{{"REQUEST_METHOD", "POST"},
                                       {"CONTENT_TYPE", type},
                                       {"CONTENT_LENGTH", std::to_string(body.size())}};
    const quiet_request request;
    const int result = cgi_parse(request.input);
    if (result == 0 && !body.empty())
        expect(std::string_view(cgi_query_string(request.input), body.size()) == body,
               "the raw body is what came");
    return {result, parsed_parts(request.input, {request.input->body, body.size()})};
}

plain_form parse_buffer(const std::string& type, std::string_view body) {
    const quiet_request request;
    request.set("CONTENT_TYPE", type);
    const exact_bytes text(body, 1);
    const int result = cgi_parse_iii(request.input, text.data(), text.length(), 1);
    return {result, parsed_parts(request.input, {text.data(), text.size})};
}

void check(const plain_form& form, const plain_form& expected) {
    expect(form.result == expected.result, "both readings accept the same");
    expect(form.parts == expected.parts, "both readings find the same parts");
}

// What a body has in common with its beginning: no part but a whole one.
void check_cut(const plain_form& whole, const plain_form& beginning) {
    if (whole.result != 0 || beginning.result != 0) return;
    expect(beginning.parts.size() <= whole.parts.size() &&
               std::equal(beginning.parts.begin(), beginning.parts.end(), whole.parts.begin()),
           "a body that was cut has the first of its parts");
}

void check_search(std::string_view boundary_text, std::string_view body) {
    boundary delimiter;
    const std::string type = "boundary=" + std::string(boundary_text);
    if (!boundary_prepare(&delimiter, type.c_str())) return;
    expect(boundary_find(delimiter, exact_bytes(body).view()) ==
               body.find("--" + std::string(boundary_text)),
           "a delimiter is found where a plain search finds it");
}

}  // namespace

void fuzz_one(std::string_view data) {
    const fuzz_descriptor_check descriptors;
    fuzz_fields fields{data};
    const std::size_t share = fields.byte();
    const std::string name = until_nul(fields.field());
    const std::string_view body = fields.rest;
    const std::string type = "multipart/form-data; boundary=" + name;
    check_search(name, body);
    const bool usable = !name.empty() && name.size() <= boundary_max - 2;
    if (!usable) {
        expect(body.empty() || parse_sent(type, body).result == cgi_refused,
               "a boundary has from 1 to 254 bytes");
        return;
    }
    const plain_form whole = plain_reading(body, "--" + name);
    check(parse_sent(type, body), whole);
    const std::string_view beginning = body.substr(0, body.size() * share / 256);
    const plain_form cut = parse_buffer(type, beginning);
    check(cut, plain_reading(beginning, "--" + name));
    check_cut(whole, cut);
}
