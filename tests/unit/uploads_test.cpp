// Uploads to the two large-upload pages pass through a spool file, and their file becomes the
// image.
#include <random>

#include "platform/paths.h"

#include "runtime/body_input.h"
#include "runtime/cgi.h"
#include "runtime/request.h"

#include "input_support.h"

using namespace std::string_literals;

namespace {

constexpr char import_page[] = "/screens/captiveportal_import.html";
constexpr char os_page[] = "/screens/wms-os-upload.html?x=1";
constexpr char boundary_line[] = "--q9-q9-q8";

struct uploads : testing::Test {
    request_record request;
    cgi* const input = &request.input;

    void SetUp() override {
        fresh_flash("mode=755");
        fresh_folder("/tmp", "mode=1777");
        set("REQUEST_METHOD", "POST");
        set("REQUEST_URI", import_page);
        set("CONTENT_TYPE", "multipart/form-data; boundary=q9-q9-q8");
    }
    void set(const char* name, const char* value) const {
        ASSERT_EQ(cgi_set_var(input, name, value), 0);
    }
    int upload(const std::string& body, std::size_t length) const {
        const body_on_stdin on_stdin{body};
        set("CONTENT_LENGTH", std::to_string(length).c_str());
        const int result = cgi_parse(input);
        if (result != cgi_low_space) return result;
        EXPECT_EQ(body_on_stdin::read_so_far(), long(std::min(body.size(), length)));
        return result;
    }
    int upload(const std::string& body) const { return upload(body, body.size()); }
    std::string value(const char* name) const {
        const cgi_pair* const pair = cgi_named_pair(input, name);
        return pair == nullptr ? "(none)" : std::string(pair->value, std::size_t(pair->value_len));
    }
};

std::string part(const std::string& headers, const std::string& data) {
    return boundary_line + "\r\nContent-Disposition: form-data; name=\""s + headers + "\r\n\r\n" +
           data + "\r\n";
}
std::string field(const std::string& name, const std::string& data) {
    return part(name + "\"", data);
}
std::string file(const std::string& name, const std::string& data) {
    return part("image\"; filename=\"" + name + "\"\r\nContent-Type: x/y", data);
}
const std::string last_line = boundary_line + "--\r\n"s;

TEST_F(uploads, are_chosen_by_method_and_uri) {
    const struct {
        const char* method;
        const char* uri;
        bool spooled;
    } rows[] = {
        {"POST", import_page, true}, {"POST", os_page, true},  {"GET", os_page, false},
        {"POST", "/import", false},  {"POST", nullptr, false}, {nullptr, os_page, false},
    };
    for (const auto& row : rows) {
        set("REQUEST_METHOD", row.method);
        set("REQUEST_URI", row.uri);
        EXPECT_EQ(cgi_is_spooled_upload(input), row.spooled);
    }
}

TEST_F(uploads, the_first_file_becomes_the_image_and_the_rest_fields) {
    const std::string zeros("\0\r\n--q9-q9-\r\n", 13);
    for (const char* page : {import_page, os_page}) {
        set("REQUEST_URI", page);
        EXPECT_EQ(upload("preamble" + field("b", "2\0x"s) + file("/a/os.bin", zeros) +
                         field("a", "") + file("second.bin", "other") + "--q9-q9" + last_line),
                  0);
        EXPECT_EQ(contents(paths::os_image), zeros);
        EXPECT_EQ(input->pairs.count, 2);
        EXPECT_EQ(value("a"), "");
        EXPECT_EQ(value("b"), "2\0x"s);
        EXPECT_EQ(cgi_query_string(input), nullptr);
        EXPECT_FALSE(exists(paths::spool_flash));
    }
    EXPECT_EQ(upload("nothing of a form"), 0);
    EXPECT_EQ(input->pairs.count, 0);
}

// The delimiter behind the file, with its line ends, moves over the end of the first window byte by
// byte; then the file's own heading does.
TEST_F(uploads, a_delimiter_may_lie_across_two_windows) {
    const std::string head = file("os.bin", "");
    for (std::size_t shift = 0; shift < 40; ++shift) {
        SCOPED_TRACE(shift);
        const std::string data(body_chunk - head.size() - 20 + shift, '-');
        ASSERT_EQ(upload(file("os.bin", data) + field("after", "1") + last_line), 0);
        ASSERT_EQ(contents(paths::os_image), data);
        ASSERT_EQ(value("after"), "1");
    }
    for (std::size_t shift = 0; shift < 2 * head.size(); shift += 3) {
        SCOPED_TRACE(shift);
        const std::string before(body_chunk - 2 * head.size() + shift, '\r');
        ASSERT_EQ(upload(field("before", before) + file("os.bin", "data") + last_line), 0);
        ASSERT_EQ(contents(paths::os_image), "data");
        ASSERT_EQ(value("before"), before);
    }
}

TEST_F(uploads, files_of_many_windows_arrive_whole) {
    std::mt19937 random{11};
    std::string data(3 * body_chunk + 7, '\0');
    for (char& c : data)
        c = "-q98\r\n"[random() % 6];
    ASSERT_EQ(data.find(boundary_line), std::string::npos);
    ASSERT_EQ(upload(file("os.bin", data) + field("a", data) + last_line), 0);
    EXPECT_EQ(contents(paths::os_image), data);
    EXPECT_EQ(value("a"), data);
}

// What the heading of a part may be, from the part's first byte to the empty line.
TEST_F(uploads, a_heading_ends_within_196_bytes) {
    const std::size_t fixed = file("", "").size() - sizeof boundary_line - 1 - 2;
    const std::string fits(196 - fixed, 'n');
    EXPECT_EQ(upload(file(fits, "data") + field("a", "1") + last_line), 0);
    EXPECT_EQ(contents(paths::os_image), "data");
    unlink(paths::os_image);
    EXPECT_EQ(upload(file(fits + "n", "data") + field("a", "1") + last_line), 0);
    EXPECT_FALSE(exists(paths::os_image));
    EXPECT_EQ(value("a"), "1");
    const std::string headless = boundary_line + "\r\nno heading\r\n"s;
    EXPECT_EQ(upload(headless + file("f", "x") + boundary_line + "\r\n" + last_line), 0);
    EXPECT_EQ(contents(paths::os_image), "x");
}

TEST_F(uploads, a_failed_upload_leaves_nothing_behind) {
    const std::string image = file("os.bin", "data");
    const struct {
        std::string body;
        std::size_t more;  // bytes that CONTENT_LENGTH promises beyond the body
        int result;
        const char* log;
    } rows[] = {
        {image + file("..", "x") + last_line, 0, -6, ""},
        {file("a/.hidden", "x") + last_line, 0, -6, ""},
        {image + last_line, 1, -5,
         "read size (118), write size (118) and actual size (119) mismatch"},
        {file("os.bin", "cut short"), 0, 0, ""},
        {field("kept", "1") + field("cut", "2"), 0, 0, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.body);
        put_file(paths::os_image, "of an earlier upload");
        logged();
        EXPECT_EQ(upload(row.body, row.body.size() + row.more), row.result);
        EXPECT_NE(logged().find(row.log), std::string::npos);
        EXPECT_EQ(exists(paths::os_image), row.body.find("cut\"") != std::string::npos);
        EXPECT_FALSE(exists(paths::spool_flash));
        EXPECT_EQ(value("cut"), "(none)");
    }
    EXPECT_EQ(value("kept"), "1");
    set("CONTENT_TYPE", "multipart/form-data");
    EXPECT_EQ(upload(image + last_line), -1);
    EXPECT_FALSE(exists(paths::os_image));
}

TEST_F(uploads, parts_in_memory_are_bounded_in_sum) {
    const std::string half(40 << 20, 'x');
    EXPECT_EQ(upload(field("a", half) + field("b", half) + last_line), -3);
    EXPECT_EQ(input->pairs.count, 0);
}

TEST_F(uploads, the_place_of_the_spool_file_depends_on_free_space) {
    const std::string body = file("os.bin", std::string(2 << 20, 'x')) + last_line;
    // Too little for twice the body: refused, and the body is taken off the input.
    fresh_flash("size=2m");
    EXPECT_EQ(upload(body, body.size()), -8);
    EXPECT_NE(logged().find("Current free flash space (2 MB) is too low. System needs 5 MB"),
              std::string::npos);
    // The leftovers of an earlier upload make room.
    fresh_flash("size=7m");
    put_file(paths::os_image, std::string(4 << 20, 'y'));
    EXPECT_EQ(upload(body), 0);
    EXPECT_EQ(contents(paths::os_image).size(), 2U << 20);
    // More than the body, less than twice: the RAM disk.
    fresh_flash("size=4m");
    ASSERT_EQ(mkdir(paths::spool_flash, 0755), 0);  // in the way, if it went there
    EXPECT_EQ(upload(body), 0);
    EXPECT_EQ(contents(paths::os_image).size(), 2U << 20);
    EXPECT_FALSE(exists(paths::spool_ramdisk));
    fresh_folder("/tmp", "mode=1777,size=2m");
    EXPECT_EQ(upload(body), -8);
    // A body without end is no reason to overflow.
    set("CONTENT_LENGTH", "9223372036854775807");
    EXPECT_EQ(cgi_parse(input), -3);
}

TEST_F(uploads, an_image_needs_free_memory_as_well) {
    const std::string body = file("os.bin", "x") + last_line;
    put_file("/tmp/meminfo", "MemFree: 99999999 kB\nMemAvailable:   61439 kB\n");
    ASSERT_EQ(mount("/tmp/meminfo", "/proc/meminfo", nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(upload(body), 0);
    set("REQUEST_URI", os_page);
    EXPECT_EQ(upload(body), -8);
    EXPECT_NE(logged().find("Current free memory (59 MB) is too low. System needs 60 MB"),
              std::string::npos);
    put_file("/tmp/meminfo", "MemAvailable:   61440 kB\n");
    EXPECT_EQ(upload(body), 0);
    umount2("/proc/meminfo", MNT_DETACH);
}

TEST_F(uploads, a_planted_spool_file_is_not_followed) {
    fresh_flash("size=4m");
    // The leftover is removed first, so only a folder in its place, or a race, still stands there.
    ASSERT_EQ(mkdir(paths::spool_ramdisk, 0777), 0);
    EXPECT_EQ(upload(file("os.bin", std::string(2 << 20, 'x')) + last_line), -5);
    EXPECT_NE(logged().find("open failed (21) on post.data file. usetmp: 1"), std::string::npos);
    fresh_flash("mode=755");
    put_file("/flash/config/precious", "precious");
    ASSERT_EQ(symlink("/flash/config/precious", paths::spool_flash), 0);
    EXPECT_EQ(upload(file("os.bin", "x") + last_line), -5);
    EXPECT_NE(logged().find("open failed (40) on post.data file. usetmp: 0"), std::string::npos);
    ASSERT_EQ(unlink(paths::spool_flash), 0);
    ASSERT_EQ(symlink("/flash/config/precious", paths::os_image), 0);
    EXPECT_EQ(upload(file("os.bin", "x") + last_line), -5);
    EXPECT_EQ(contents("/flash/config/precious"), "precious");
}

TEST_F(uploads, a_refused_body_is_read_no_further_than_its_length) {
    const struct {
        const char* length;
        long read;
    } rows[] = {{"5", 5}, {"99999", 20000}, {"-1", 0}, {nullptr, 0}, {"17000", 17000}};
    for (const auto& row : rows) {
        const body_on_stdin body{std::string(20000, 'x')};
        set("CONTENT_LENGTH", row.length);
        cgi_discard_body(input);
        EXPECT_EQ(body_on_stdin::read_so_far(), row.read);
    }
}

}  // namespace
