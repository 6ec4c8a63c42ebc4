// Uploads that are spooled to flash: fields and image are those of a plain splitter wherever the
// windows cut the body, and nothing stays behind of what was refused or cut off.
//
// An input: a byte of switches, a byte that tells where in the body the first window ends (or how
// much of it is cut off), a line with the boundary, then the body.
#include <unistd.h>

#include "platform/paths.h"

#include "runtime/body_input.h"
#include "runtime/spool.h"

#include "fuzz_files.h"
#include "plain_multipart.h"

namespace {

constexpr std::size_t heading_reach = 196;

struct plain_upload {
    int result = 0;
    std::vector<plain_part> fields;
    std::optional<std::string> image;
    bool operator==(const plain_upload&) const = default;
};

plain_upload plain_reading(std::string_view body, const std::string& delimiter) {
    plain_upload upload;
    for (const plain_piece& piece : plain_pieces(body, delimiter)) {
        const auto part = plain_read_part(piece.text, heading_reach);
        if (!part) continue;
        if (!part->filename) {
            if (piece.ended) upload.fields.push_back(plain_as_field(*part));
            continue;
        }
        if (plain_is_refused_file(*part->filename)) return {.result = cgi_refused_file};
        const bool first = !upload.image && !part->filename->empty();
        if (first && piece.ended) upload.image = part->data;
    }
    return upload;
}

struct upload_case {
    std::string boundary;
    std::string body;
    std::int64_t claimed;  // CONTENT_LENGTH
    const char* uri;
    std::optional<std::string> staged;  // the image of an earlier upload
    bool refused;                       // after it was received
};

plain_upload expected_of(const upload_case& sent) {
    if (sent.claimed > INT32_MAX) return {.result = cgi_low_space};
    if (sent.claimed > static_cast<std::int64_t>(sent.body.size()))
        return {.result = cgi_read_error};
    if (sent.boundary.empty() || sent.boundary.size() > 254) return {.result = cgi_refused};
    const std::string_view body{sent.body};
    return plain_reading(body.substr(0, static_cast<std::size_t>(sent.claimed)),
                         "--" + sent.boundary);
}

// The image that is staged once the request is over.
std::optional<std::string> expected_image(const upload_case& sent, const plain_upload& expected) {
    if (expected.result == cgi_low_space) return {};
    if (expected.result != 0 || sent.refused || !expected.image) return sent.staged;
    return expected.image;
}

std::optional<std::string> staged_image() {
    if (!fuzz_file_exists(paths::os_image)) return {};
    return fuzz_file_text(paths::os_image);
}

plain_upload received_of(const upload_case& sent) {
    fuzz_stdin(sent.body);
    const fuzz_environment environment{
        {"REQUEST_METHOD", "POST"},
        {"REQUEST_URI", sent.uri},
        {"CONTENT_TYPE", "multipart/form-data; boundary=" + sent.boundary},
        {"CONTENT_LENGTH", std::to_string(sent.claimed)}};
    quiet_request request;
    plain_upload upload{.result = cgi_parse(request.input)};
    const cgi* const input = request.input;
    if (input->pairs.count > 0) {
        // The block's end is not told; what lies behind a field is found by ASan.
        std::size_t end = 0;
        for (int i = 0; i < input->pairs.count; ++i) {
            const cgi_pair& pair = input->pairs.entries[i];
            end =
                std::max(end, static_cast<std::size_t>(pair.value + pair.value_len - input->body));
        }
        upload.fields = parsed_parts(input, {input->body, end});
    }
    const bool cleared = upload.result == cgi_low_space;
    expect(cleared || staged_image() == sent.staged, "what is received is not yet the image");
    if (!sent.refused) expect(spool_keep_image(request.record.upload), "an image can be stored");
    upload.image = staged_image();
    const std::size_t read = fuzz_stdin_read();
    expect(read == std::min<std::uint64_t>(sent.body.size(), std::uint64_t(sent.claimed)),
           "a body is read as far as it was claimed, be it refused or not");
    return upload;
}

// Where in the body the first window ends: within some bytes of a delimiter, where most is decided.
std::size_t window_end(std::string_view body, const std::string& delimiter, std::size_t choice) {
    std::size_t at = body.find(delimiter);
    for (std::size_t skipped = choice / 32; skipped > 0 && at != std::string_view::npos; --skipped)
        at = body.find(delimiter, at + 1);
    if (at == std::string_view::npos) return body.size() * choice / 256;
    return at - std::min<std::size_t>(at, 8) + choice % 32;
}

// The body behind a preamble that puts the end of the first window there.
std::string shifted(std::string_view body, std::size_t end) {
    return std::string(body_chunk - std::min(end, std::size_t{body_chunk}), '\r') +
           std::string(body);
}

// Switches: bits 0 and 1 the length that is claimed, 2 a shifted body, 3 the other page, 4 an image
// of an earlier upload, 5 a request that is refused once its upload was received.
std::int64_t claimed_length(unsigned switches, std::size_t sent, std::size_t share) {
    const auto size = static_cast<std::int64_t>(sent);
    switch (switches % 4) {
        case 2:
            return std::max<std::int64_t>(1, size - static_cast<std::int64_t>(share));
        case 3:
            return share % 2 == 0 ? size + 1 : std::int64_t{1} << 40;
        default:
            return size;
    }
}

}  // namespace

void fuzz_one(std::string_view data) {
    fuzz_require_sandbox();
    const fuzz_descriptor_check descriptors;
    fuzz_fields fields{data};
    const unsigned switches = fields.byte();
    const std::size_t share = fields.byte();
    upload_case sent{.boundary = until_nul(fields.field()),
                     .body = std::string(fields.rest),
                     .claimed = 0,
                     .uri = (switches & 8U) != 0 ? "/screens/wms-os-upload.html?x"
                                                 : "/captiveportal_import.html",
                     .staged = {},
                     .refused = (switches & 32U) != 0};
    if ((switches & 4U) != 0)
        sent.body = shifted(sent.body, window_end(sent.body, "--" + sent.boundary, share));
    sent.claimed = claimed_length(switches, sent.body.size(), share);
    if (sent.claimed == 0) return;  // no body, which is no upload
    ::unlink(paths::os_image);
    if ((switches & 16U) != 0) std::ofstream(paths::os_image) << *(sent.staged = "earlier");

    const plain_upload received = received_of(sent);
    plain_upload expected = expected_of(sent);
    expected.image = expected_image(sent, expected);
    expect(received.result == expected.result, "both readings accept the same");
    expect(received.fields == expected.fields, "both readings find the same fields");
    expect(received.image == expected.image, "the image is the part's bytes, or the one before");
    for (const char* file : {paths::spool_flash, paths::spool_ramdisk, paths::os_image_new})
        expect(!fuzz_file_exists(file), "nothing stays behind beside the image");
}
