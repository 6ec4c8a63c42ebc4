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
        fresh_folder("/tmp", "mode=1777");
        set("REQUEST_METHOD", "POST");
        set("REQUEST_URI", "/screens/captiveportal_import.html");
        set("CONTENT_TYPE", "multipart/form-data; boundary=q9-q9-q8");
    }
    int upload(const std::string& body, std::size_t promised_more = 0) const {
        const body_on_stdin on_stdin{body};
        set("CONTENT_LENGTH", std::to_string(body.size() + promised_more).c_str());
        const int result = cgi_parse(input);
        // What is refused for lack of space is read all the same.
        EXPECT_TRUE(result != cgi_low_space || body_on_stdin::read_so_far() == long(body.size()));
        return result;
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

// Everything from before the file to behind it moves over the end of the first window byte by byte.
TEST_F(uploads, a_file_becomes_the_image_wherever_the_windows_cut_the_body) {
    const std::string data("\0\r\n--q9-q9-\r\n", 13);
    const std::string image = file("/a/os.bin", data);
    const std::string rest = file("", "") + image + field("after", "1") +
                             file("second.bin", "other") + "--q9-q9" + last_line;
    for (std::size_t shift = 0; shift < 2 * image.size() + 40; ++shift) {
        SCOPED_TRACE(shift);
        const std::string before(body_chunk - 2 * image.size() - 40 + shift, '\r');
        ASSERT_EQ(upload("preamble" + field("before", before) + rest), 0);
        ASSERT_EQ(contents(paths::os_image), data);
        ASSERT_EQ(cgi_named_value(input, "before"), before);
        ASSERT_STREQ(cgi_named_value(input, "after"), "1");
        ASSERT_EQ(input->pairs.count, 2);
    }
    set("REQUEST_METHOD", "GET");
    EXPECT_FALSE(cgi_is_spooled_upload(input));
}

// What the heading of a part may be, from the part's first byte to the empty line.
TEST_F(uploads, a_heading_ends_within_196_bytes) {
    const std::size_t fixed = file("", "").size() - sizeof boundary_line - 1 - 2;
    const std::string fits(196 - fixed, 'n');
    const std::string headless = boundary_line + "\r\nno heading\r\n"s;
    EXPECT_EQ(upload(headless + file(fits, "data") + boundary_line + "\r\n" + last_line), 0);
    EXPECT_EQ(contents(paths::os_image), "data");
    unlink(paths::os_image);
    EXPECT_EQ(upload(file(fits + "n", "data") + field("a", "1") + last_line), 0);
    EXPECT_NE(access(paths::os_image, F_OK), 0);
    EXPECT_STREQ(cgi_named_value(input, "a"), "1");
}

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

TEST_F(uploads, the_place_of_the_spool_file_depends_on_free_space) {
    const std::string body = file("os.bin", std::string(2 << 20, 'x')) + last_line;
    fresh_flash("size=2m");
    EXPECT_EQ(upload(body), -8);
    EXPECT_NE(contents(paths::debug_trace).find("space (2 MB) is too low. System needs 5 MB"),
              std::string::npos);
    // The leftovers of an earlier upload make room.
    fresh_flash("size=7m");
    put_file(paths::os_image, std::string(4 << 20, 'y'));
    EXPECT_EQ(upload(body), 0);
    // More than the body, less than twice: the RAM disk.
    fresh_flash("size=8m");
    put_file("/flash/other", std::string(4 << 20, 'z'));
    ASSERT_EQ(mkdir(paths::spool_flash, 0755), 0);  // in the way, if it went there
    EXPECT_EQ(upload(body), 0);
    EXPECT_EQ(contents(paths::os_image).size(), 2U << 20);
    fresh_folder("/tmp", "mode=1777,size=2m");
    EXPECT_EQ(upload(body), -8);
    // A body without end is no reason to overflow.
    set("CONTENT_LENGTH", "9223372036854775807");
    EXPECT_EQ(cgi_parse(input), -3);
}

TEST_F(uploads, an_image_needs_free_memory_as_well) {
    put_file("/tmp/meminfo", "MemFree: 99999999 kB\nMemAvailable:   61439 kB\n");
    ASSERT_EQ(mount("/tmp/meminfo", paths::memory_info, nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(upload(last_line), 0);
    set("REQUEST_URI", "/screens/wms-os-upload.html?x=1");
    EXPECT_EQ(upload(last_line), -8);
    put_file("/tmp/meminfo", "MemAvailable:   61440 kB\n");
    EXPECT_EQ(upload(last_line), 0);
    umount2(paths::memory_info, MNT_DETACH);
}

TEST_F(uploads, a_planted_spool_file_is_not_followed) {
    const std::string body = file("os.bin", "x") + last_line;
    put_file("/flash/config/precious", "precious");
    ASSERT_EQ(symlink("/flash/config/precious", paths::os_image), 0);
    EXPECT_EQ(upload(body), 0);  // a link in the image's place is an older image
    ASSERT_EQ(symlink("/flash/config/precious", paths::spool_flash), 0);
    EXPECT_EQ(upload(body), -5);
    EXPECT_EQ(contents("/flash/config/precious"), "precious");
    unlink(paths::spool_flash);
    put_file(paths::spool_flash, "");
    ASSERT_EQ(chown(paths::spool_flash, 65534, 65534), 0);  // its owner could change what came
    EXPECT_EQ(upload(body), -5);
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
