// Page templates: tags, the three kinds of output, included files.
#include <filesystem>

#include "runtime/sfmt.h"

#include "input_support.h"

using namespace std::string_literals;

namespace {

struct templates : testing::Test {
    sfmt vars{};
    void SetUp() override { sfmt_init(&vars); }
    void TearDown() override { sfmt_deinit(&vars); }
    // Renders to all three kinds of output.
    std::string render(const std::string& text) const {
        const exact_copy input{text};
        scoped_strbuf growing;
        const int total = sfmt_fmt_iii(&vars, growing, input.data(), input.size);
        std::string result(growing.buf.data != nullptr ? growing.buf.data : "", size_t(total));
        EXPECT_EQ(sfmt_fmt(&vars, nullptr, 0, input.data(), input.size), -total);
        char* block = nullptr;
        std::int32_t length = -1;
        EXPECT_EQ(sfmt_fmt_ii(&vars, &block, &length, input.data(), input.size), -total);
        const malloc_text owned(block);
        EXPECT_EQ(block != nullptr, total > 0);
        EXPECT_EQ(std::string(block != nullptr ? block : "", size_t(length)), result);
        return result;
    }
};

TEST_F(templates, tags_are_filled_dropped_or_kept) {
    sfmt_add(&vars, "x", 0, "1", 0);
    sfmt_add(&vars, "x", 0, "2", 0);
    sfmt_add(&vars, "long", 3, "abcdef", 3);
    sfmt_add(&vars, "raw", 0, "<%x%>&", 0);
    EXPECT_EQ(sfmt_add(&vars, nullptr, 1, "v", 1), -1);
    EXPECT_EQ(sfmt_add(&vars, "n", 1, nullptr, 1), -1);
    for (const auto& [text, expected] : text_pairs{{"", ""},
                                                   {"a<%x%>b<%n%><%X%><%xx%><%%>", "a1b"},
                                                   {"<% \t\r\nx\r\n %><%lon%>|<%long%>", "1abc|"},
                                                   {"<%raw%>", "<%x%>&"},
                                                   {"a<%-- <%x%> --%>b<%-x%>", "ab"},
                                                   {"a<%--x%>b", "a<%--x%>b"},
                                                   {"a<%--%>b--%>c", "ac"},
                                                   {"a<%x", "a<%x"},
                                                   {"a<%>b<%x%><%", "a<%"},
                                                   {"<%x%><%@open", "1<%@open"},
                                                   {"a\0<%x%>\0b"s, "a\0001\0b"s},
                                                   {"a<%@/nowhere%>b<%@%>c<%@ %>", "abc"},
                                                   {"100% <b> <%x%> %>", "100% <b> 1 %>"}})
        EXPECT_EQ(render(text), expected);
}

TEST_F(templates, includes_are_rendered_five_deep_and_then_copied) {
    sfmt_add(&vars, "x", 0, "v", 0);
    for (int level = 1; level <= 7; ++level) {
        put_file("/tmp/level" + std::to_string(level),
                 std::to_string(level) + "<%x%><%@ /tmp/level" + std::to_string(level + 1) + " %>");
    }
    EXPECT_EQ(render("<%@/tmp/level1%>."), "1v2v3v4v5v6<%x%><%@ /tmp/level7 %>.");
    char storage[64];
    EXPECT_EQ(sfmt_fmtf(&vars, storage, sizeof storage, "/tmp/level6"), 4);
    EXPECT_STREQ(storage, "6v7v");
    EXPECT_EQ(sfmt_fmtf(&vars, storage, sizeof storage, "/nowhere"), 0);
}

TEST_F(templates, only_regular_files_of_a_bounded_size_are_read) {
    ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
    put_file("/tmp/huge", "");
    std::filesystem::resize_file("/tmp/huge", std::uintmax_t(sfmt_file_max) + 1);
    put_file("/tmp/text", "text");
    put_file("/tmp/empty", "");
    ASSERT_EQ(mkdir("/tmp/sys", 0755), 0);
    ASSERT_EQ(mount("none", "/tmp/sys", "sysfs", MS_RDONLY, nullptr), 0) << std::strerror(errno);
    for (const auto& [path, expected] :
         {std::pair{"/tmp/fifo", EINVAL},
          {"/tmp", EINVAL},
          {"/dev/zero", EINVAL},
          {"/tmp/huge", EFBIG},
          {"/tmp/no", ENOENT},
          {"/tmp/text", 0},
          {"/tmp/empty", 0},
          {"/tmp/sys/kernel/uevent_seqnum", EIO}}) {  // is shorter than the kernel says
        SCOPED_TRACE(path);
        char* data = nullptr;
        std::int32_t size = -1;
        EXPECT_EQ(sfmt_read_all(&data, &size, path), expected);
        const malloc_text owned(data);
        ASSERT_EQ(data != nullptr, expected == 0);
        EXPECT_EQ(size, data != nullptr ? std::int32_t(std::strlen(data)) : 0);
    }
}

}  // namespace
