// Uploads to the two large-upload pages pass through a spool file, and their file becomes the
// image.
#include "platform/paths.h"

#include "runtime/body_input.h"

#include "input_support.h"

using namespace std::string_literals;

namespace {

constexpr char boundary_line[] = "--q9-q9-q8";

struct uploads : request_fixture {
    void SetUp() override {
        fresh_flash("mode=755");
        set("REQUEST_METHOD", "POST");
        set("REQUEST_URI", "/screens/captiveportal_import.html");
        set("CONTENT_TYPE", "multipart/form-data; boundary=q9-q9-q8");
    }
    int upload(const std::string& body, std::size_t promised_more = 0) const {
        const body_on_stdin on_stdin{body};
        set("CONTENT_LENGTH", std::to_string(body.size() + promised_more).c_str());
        return cgi_parse(input);
    }
};

std::string field(const std::string& name, const std::string& data) {
    return boundary_line + "\r\nContent-Disposition: form-data; name=\""s + name + "\"\r\n\r\n" +
           data + "\r\n";
}
std::string file(const std::string& name, const std::string& data) {
    return field("image\"; filename=\"" + name + "\"\r\nContent-Type: x/y", data);
}
const std::string last_line = boundary_line + "--\r\n"s;

TEST_F(uploads, a_failed_upload_leaves_nothing_behind) {
    const std::string half(40 << 20, 'x');
    const std::string image = file("os.bin", "data");
    const std::pair<std::string, int> rows[] = {
        {image + file("..", "x") + last_line, -6},
        {image + last_line, -5},  // one byte less than promised
        {field("kept", "1") + file("os.bin", "cut short"), 0},
        {field("kept", "1") + file("", "") + last_line, 0},              // no file was chosen
        {image + field("a", half) + field("b", half) + last_line, -3}};  // too much for memory
    for (const auto& [body, result] : rows) {
        put_file(paths::os_image, "of an earlier upload");
        EXPECT_EQ(upload(body, result == -5 ? 1 : 0), result);
        EXPECT_EQ(input->pairs.count, result == 0 ? 1 : 0);
        EXPECT_NE(access(paths::os_image, F_OK), 0);
        EXPECT_NE(access(paths::spool_flash, F_OK), 0);
    }
}

TEST_F(uploads, a_refused_body_is_read_no_further_than_its_length) {
    for (const auto& [length, read] : {std::pair{"5", 5L}, {"99999", 20000L}, {"-1", 0L}}) {
        const body_on_stdin body{std::string(20000, 'x')};
        set("CONTENT_LENGTH", length);
        cgi_discard_body(input);
        EXPECT_EQ(body_on_stdin::read_so_far(), read);
    }
}

}  // namespace
