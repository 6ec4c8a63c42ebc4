// Uploads to the two large-upload pages pass through a spool file, and their file becomes the
// image.
#include <sys/file.h>
#include <tuple>

#include "platform/paths.h"

#include "runtime/body_input.h"
#include "runtime/spool.h"

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

bool turn_is_free() {
    const unique_fd lock{open(paths::upload_turn, O_RDWR | O_CLOEXEC)};
    return flock(lock.get(), LOCK_EX | LOCK_NB) == 0;
}

TEST_F(uploads, the_staged_image_is_replaced_by_a_whole_one_alone) {
    const std::string staged = "of an earlier upload";
    const std::string half(40 << 20, 'x');
    const std::string image = file("os.bin", "data");
    const std::tuple<std::string, int, std::string> rows[] = {
        {image + field("kept", "1") + last_line, 0, "data"},
        {image + file("..", "x") + last_line, -6, staged},
        {image + last_line, -5, staged},  // one byte less than promised
        {field("kept", "1") + file("os.bin", "cut short"), 0, staged},
        {field("kept", "1") + file("", "") + last_line, 0, staged},  // no file was chosen
        {image + field("a", half) + field("b", half) + last_line, -3, staged}};  // too much
    for (const auto& [body, result, then] : rows) {
        for (const bool kept : {false, true}) {
            put_file(paths::os_image, staged);
            put_file(paths::os_image_new, "of a killed worker");
            put_file(paths::spool_ramdisk, "of a killed worker");
            EXPECT_EQ(upload(body, result == -5 ? 1 : 0), result);
            EXPECT_EQ(input->pairs.count, result == 0 ? 1 : 0);
            EXPECT_EQ(turn_is_free(), result != 0);
            EXPECT_EQ(contents(paths::os_image), staged);
            if (!kept) spool_drop_upload(request.upload);
            EXPECT_TRUE(spool_keep_image(request.upload));
            EXPECT_EQ(contents(paths::os_image), kept ? then : staged);
            EXPECT_TRUE(turn_is_free());
            for (const char* gone : {paths::os_image_new, paths::spool_flash, paths::spool_ramdisk})
                EXPECT_NE(access(gone, F_OK), 0) << gone;
        }
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
