// Page templates: tags, the three kinds of output, included files.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "platform/ownership.h"

#include "runtime/sfmt.h"

namespace {

struct templates : testing::Test {
    sfmt vars{};
    std::string folder = testing::TempDir() + "templates_XXXXXX";

    templates() {
        if (::mkdtemp(folder.data()) == nullptr) std::abort();
        sfmt_init(&vars);
    }
    ~templates() override {
        sfmt_deinit(&vars);
        std::filesystem::remove_all(folder);
    }
    templates(const templates&) = delete;
    templates& operator=(const templates&) = delete;

    std::string file(const std::string& name, const std::string& content) const {
        std::ofstream(folder + "/" + name, std::ios::binary) << content;
        return folder + "/" + name;
    }

    // Renders to all three kinds of output from a block of the template's exact size.
    std::string render(const std::string& text) const {
        const auto input = std::make_unique<char[]>(text.size());
        std::memcpy(input.get(), text.data(), text.size());
        const auto length = std::int32_t(text.size());
        scoped_strbuf growing;
        const int total = sfmt_fmt_iii(&vars, growing, input.get(), length);
        std::string result(growing.buf.data != nullptr ? growing.buf.data : "", size_t(total));
        EXPECT_EQ(sfmt_fmt(&vars, nullptr, 0, input.get(), length), -total);
        char* block = nullptr;
        std::int32_t block_length = -1;
        EXPECT_EQ(sfmt_fmt_ii(&vars, &block, &block_length, input.get(), length), -total);
        const malloc_text owned(block);
        EXPECT_EQ(block_length, total);
        if (total > 0) {
            EXPECT_EQ(std::string(block, size_t(block_length)), result);
        } else {
            EXPECT_EQ(block, nullptr);
        }
        return result;
    }
};

TEST_F(templates, tags_are_filled_dropped_or_kept) {
    sfmt_add(&vars, "x", 0, "1", 0);
    sfmt_add(&vars, "x", 0, "2", 0);
    sfmt_add(&vars, "long", 3, "abcdef", 3);
    sfmt_add(&vars, "raw", 0, "<%x%>&", 0);
    sfmt_add(&vars, "empty", 0, "", 0);
    const struct {
        std::string text, expected;
    } rows[] = {
        {"", ""},
        {"plain", "plain"},
        {"a<%x%>b", "a1b"},
        {"a<%y%>b", "ab"},
        {"a<%X%>b<%xx%><%%>", "ab"},
        {"<% \t\r\nx\r\n %>", "1"},
        {"<%lon%>|<%long%>", "abc|"},
        {"<%raw%><%empty%>", "<%x%>&"},
        {"a<%-- <%x%> --%>b", "ab"},
        {"a<%--x%>b", "a<%--x%>b"},
        {"a<%--%>b--%>c", "ac"},
        {"a<%-x%>b", "ab"},
        {"a<%x", "a<%x"},
        {"a<%", "a<%"},
        {"a<%>b<%x%>", "a"},
        {"<%x%><%@open", "1<%@open"},
        {std::string("a\0<%x%>\0b", 9), std::string("a\0001\0b", 5)},
        {"a<%@/nowhere/at/all%>b<%@%>c<%@ %>d", "abcd"},
        {"100% <b> <%x%> %>", "100% <b> 1 %>"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(render(row.text), row.expected);
    }
}

TEST_F(templates, what_is_missing_is_refused) {
    EXPECT_EQ(sfmt_add(&vars, nullptr, 1, "v", 1), -1);
    EXPECT_EQ(sfmt_add(&vars, "n", 1, nullptr, 1), -1);
    EXPECT_EQ(render("<%n%>"), "");
}

TEST_F(templates, includes_are_rendered_five_deep_and_then_copied) {
    sfmt_add(&vars, "x", 0, "v", 0);
    for (int level = 1; level <= 7; ++level) {
        const std::string next = folder + "/" + std::to_string(level + 1);
        file(std::to_string(level), std::to_string(level) + "<%x%><%@ " + next + " %>");
    }
    const std::string first = "<%@" + folder + "/1%>.";
    EXPECT_EQ(render(first), "1v2v3v4v5v6<%x%><%@ " + folder + "/7 %>.");
}

TEST_F(templates, files_are_rendered_and_missing_ones_are_nothing) {
    sfmt_add(&vars, "x", 0, "1", 0);
    const std::string page = file("page", "a<%x%>");
    for (const std::string& path : {page, page + ".none"}) {
        const int length = path == page ? 2 : 0;
        char storage[16] = "";
        EXPECT_EQ(sfmt_fmtf(&vars, storage, sizeof storage, path.c_str()), length);
        EXPECT_STREQ(storage, length > 0 ? "a1" : "");
        char* block = storage;
        std::int32_t block_length = -1;
        EXPECT_EQ(sfmt_fmtf_ii(&vars, &block, &block_length, path.c_str()), -length);
        EXPECT_STREQ(malloc_text(block).get(), length > 0 ? "a1" : nullptr);
        scoped_strbuf buf;
        EXPECT_EQ(sfmt_fmtf_iii(&vars, buf, path.c_str()), length);
    }
}

TEST_F(templates, only_regular_files_of_a_bounded_size_are_read) {
    const std::string fifo = folder + "/fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string huge = file("huge", "");
    std::filesystem::resize_file(huge, std::uintmax_t(sfmt_file_max) + 1);
    const struct {
        std::string path;
        int expected;
    } rows[] = {{fifo, EINVAL},       {folder, EINVAL},         {"/dev/zero", EINVAL},
                {huge, EFBIG},        {folder + "/no", ENOENT}, {file("ok", "text"), 0},
                {file("none", ""), 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        char* data = folder.data();
        std::int32_t size = -1;
        EXPECT_EQ(sfmt_read_all(&data, &size, row.path.c_str()), row.expected);
        const malloc_text owned(data);
        ASSERT_EQ(data != nullptr, row.expected == 0);
        EXPECT_EQ(size, data != nullptr ? std::int32_t(std::strlen(data)) : 0);
    }
}

// The kernel reports a size for this file that reading it does not yield.
TEST_F(templates, a_short_read_is_an_error) {
    const char path[] = "/sys/kernel/mm/transparent_hugepage/enabled";
    if (!std::filesystem::exists(path)) GTEST_SKIP() << "no such file in this kernel";
    char* data = nullptr;
    std::int32_t size = 0;
    EXPECT_EQ(sfmt_read_all(&data, &size, path), EIO);
    EXPECT_EQ(data, nullptr);
}

}  // namespace
