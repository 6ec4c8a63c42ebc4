// Growing and fixed text buffers and vectors: edges, refusals, random edits against the standard
// containers, and memory that runs out. Linked with --wrap for malloc and realloc.
#include <algorithm>
#include <climits>
#include <random>

#include "runtime/aqt_vector.h"
#include "runtime/fsb.h"
#include "runtime/sfmt.h"
#include "runtime/sgml_text.h"
#include "runtime/strbuf.h"
#include "runtime/wsv.h"

#include "input_support.h"

namespace {

long allocations_left = LONG_MAX;  // the allocation after so many fails

bool allocation_fails() {
    return allocations_left != LONG_MAX && allocations_left-- == 0;
}

}  // namespace

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the linker's names
void* __real_malloc(std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void* __wrap_malloc(std::size_t size) {
    return allocation_fails() ? nullptr : __real_malloc(size);
}
void* __wrap_realloc(void* block, std::size_t size) {
    return allocation_fails() ? nullptr : __real_realloc(block, size);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
}

namespace {

// The values of the tests fit one byte.
int less_or_greater(const void* a, const void* b) {
    return std::memcmp(a, b, 1);
}

TEST(growing_buffer, grows_by_kilobytes_and_refuses_what_cannot_be_counted) {
    for (const int n : {0, 1023, 1024}) {
        scoped_strbuf buf;
        EXPECT_EQ(wms_strbuf_append(buf, std::string(std::size_t(n), 'x').data(), n), 0);
        EXPECT_EQ(buf.buf.capacity, n / 1024 * 1024 + 1024) << n;
        for (const std::int64_t need : {-1L, long{INT_MAX}, LONG_MAX, LONG_MIN}) {
            EXPECT_EQ(wms_strbuf_brk(buf, need), -1) << need;
            EXPECT_EQ(wms_strbuf_reserve(buf, need), -1) << need;
        }
        EXPECT_EQ(wms_strbuf_append(buf, "x", -1), -1);
        EXPECT_EQ(wms_strbuf_append(buf, "x", INT_MAX), -1);
        EXPECT_EQ(wms_strbuf_append(buf, nullptr, 1), -1);
        EXPECT_EQ(buf.buf.length, n);
    }
}

TEST(growing_buffer, a_thousand_random_edits_agree_with_a_string) {
    std::mt19937 random(20240517);
    scoped_strbuf buf;
    std::string model;
    for (int step = 0; step < 1000; ++step) {
        std::string piece(random() % 700, char(random() % 256));
        const std::size_t from = model.empty() ? 0 : random() % model.size();
        const auto operation = random() % 16;
        const bool own = operation < 3;
        if (own) piece = model.substr(from, 900);
        const auto length = std::int32_t(piece.size());
        if (operation < 8) {
            const char* const bytes = own && length > 0 ? buf.buf.data + from : piece.data();
            ASSERT_EQ(wms_strbuf_append(buf, bytes, length), 0);
            model += piece;
        } else if (operation < 12) {
            wms_strbuf_fmt(buf, "%d:%s", step, piece.c_str());
            model += std::to_string(step) + ":" + piece.c_str();
        } else if (operation < 15) {
            ASSERT_EQ(wms_strbuf_reserve(buf, length), 0);
            ASSERT_GE(buf.buf.capacity, buf.buf.length + length + 1);
        } else {
            wms_strbuf_clear(buf);
            model.clear();
        }
        ASSERT_EQ(buf.buf.length, std::int32_t(model.size())) << "step " << step;
        if (buf.buf.data == nullptr) continue;
        ASSERT_EQ(std::memcmp(buf.buf.data, model.c_str(), model.size() + 1), 0);
    }
}

TEST(fixed_buffer, counts_all_and_stores_what_fits) {
    const std::string text = "123456789abc";
    for (int size = 1; size <= 14; ++size) {
        const auto storage = std::make_unique<char[]>(std::size_t(size));
        for (int n = 1; n <= 12; ++n) {
            SCOPED_TRACE(std::to_string(n) + " bytes into " + std::to_string(size));
            const int result = n < size - 1 ? n : -n;
            fsb buf;
            fsb_new(&buf, storage.get(), size);
            EXPECT_EQ(fsb_append(&buf, text.data(), n), result);
            EXPECT_EQ(storage.get(), text.substr(0, std::size_t(std::min(n, size - 1))));
            fsb_clear(&buf);
            // Formatting keeps one more byte free.
            EXPECT_EQ(fsb_fmt(&buf, "%.*s", n, text.data()), result);
            const int fits = std::min(n, std::max(size - 2, 0));
            EXPECT_EQ(storage.get(), text.substr(0, std::size_t(fits)));
            EXPECT_EQ(fsb_append(&buf, "x", -1), -1);
            EXPECT_EQ(buf.length, n);
        }
    }
    char untouched = '#';
    fsb buf;
    fsb_new(&buf, &untouched, -5);
    EXPECT_EQ(fsb_append(&buf, "ab", 2), -2);
    auto* const as_growing = reinterpret_cast<wms_strbuf*>(&buf);
    EXPECT_EQ(wms_strbuf_brk(as_growing, 2048), -1);
    wms_strbuf_free(as_growing);  // is not its to free
    EXPECT_EQ(untouched, '#');
}

TEST(fixed_buffer, seeks_anywhere_and_stores_only_within_its_storage) {
    const auto storage = std::make_unique<char[]>(8);
    fsb buf;
    fsb_new(&buf, storage.get(), 8);
    EXPECT_EQ(fsb_append(&buf, "abcd", 4), 4);
    EXPECT_EQ(fsb_seek(&buf, -3, 1), 1);
    EXPECT_EQ(fsb_append(&buf, "X", 1), 2);
    EXPECT_EQ(fsb_seek(&buf, -20, 2), -12);
    EXPECT_EQ(fsb_append(&buf, "lost", 4), -8);
    EXPECT_EQ(fsb_seek(&buf, INT_MAX, 0), INT_MAX);
    EXPECT_EQ(fsb_append(&buf, "x", 1), -1);
    EXPECT_EQ(fsb_seek(&buf, 1, 1), -1);
    EXPECT_STREQ(storage.get(), "aX");
}

TEST(vector, random_edits_agree_with_a_standard_vector) {
    std::mt19937 random(99);
    scoped_wsv vec(sizeof(std::uint32_t));
    std::vector<std::uint32_t> model;
    for (int step = 0; step < 1000; ++step) {
        const std::uint32_t value = std::uint32_t(random() % 64);
        const auto i = std::int32_t(random() % (model.size() + 1));
        const auto operation = random() % 7;
        if (operation < 2) {
            operation == 0 ? wsv_del(vec, i) : wsv_del2(vec, wsv_nth(vec, i));
            if (i < int(model.size())) model.erase(model.begin() + i);
        } else if (operation == 2) {
            wsv_sort(vec, less_or_greater);
            std::ranges::sort(model);
            ASSERT_EQ(wsv_bsearch(vec, &value, less_or_greater) != nullptr,
                      std::ranges::binary_search(model, value));
        } else {
            // One that is in the vector already moves along with the block.
            const bool own = operation == 3 && !model.empty();
            model.push_back(own ? model.front() : value);
            ASSERT_EQ(wsv_index(vec, wsv_add(vec, own ? wsv_nth(vec, 0) : &value)),
                      int(model.size()) - 1);
        }
        ASSERT_EQ(wsv_length(vec), int(model.size()));
        for (std::size_t at = 0; at < model.size(); ++at)
            ASSERT_EQ(std::memcmp(wsv_nth(vec, int(at)), &model[at], sizeof value), 0);
        ASSERT_TRUE(wsv_nth(vec, -1) == nullptr && wsv_nth(vec, int(model.size())) == nullptr);
        ASSERT_EQ(wsv_index(vec, &value), -1);
        const auto at = std::ranges::find(model, value);
        ASSERT_EQ(wsv_index(vec, wsv_lsearch(vec, &value, less_or_greater)),
                  at == model.end() ? -1 : int(at - model.begin()));
    }
}

TEST(vector, refuses_elements_of_no_size_and_deletes_locations_by_byte_distance) {
    for (const std::uint32_t elem_size : {0U, 0x80000000U, UINT32_MAX}) {
        scoped_wsv vec(elem_size);
        EXPECT_TRUE(wsv_add(vec, "x") == nullptr && wsv_alloc(vec) == -1) << elem_size;
    }
    scoped_wsv vec(sizeof(std::uint32_t));
    for (std::uint32_t value = 0; value < 6; ++value)
        aqt_vector_add(vec, &value);
    aqt_vector_del2(vec, aqt_vector_nth(vec, 2));  // distance 8: beyond the count
    aqt_vector_del2(vec, aqt_vector_nth(vec, 1));  // distance 4: the element with value 4
    ASSERT_EQ(aqt_vector_length(vec), 5);
    EXPECT_EQ(*static_cast<char*>(aqt_vector_nth(vec, 4)), 5);
}

using edit = bool(wms_strbuf*, wsv*, sfmt*);

// Each is tried with the first, second, ... allocation failing until it succeeds.
TEST(memory_that_runs_out, is_a_result_and_changes_nothing) {
    static const std::string big(3000, 'b');
    edit* const edits[] = {
        [](auto* b, auto*, auto*) { return wms_strbuf_append(b, big.data(), 3000) == 0; },
        [](auto* b, auto*, auto*) {
            return wms_strbuf_fmt(b, "%s", big.c_str()) == 0 && b->length > 3;
        },
        [](auto* b, auto*, auto*) { return st_esc2(b, big.data(), 3000, true, true) > 0; },
        [](auto*, auto* v, auto*) { return wsv_add(v, big.data()) != nullptr; },
        [](auto*, auto* v, auto*) { return wsv_alloc(v) == 1; },
        [](auto*, auto*, auto* s) { return sfmt_add(s, big.data(), 0, "v", 0) == 0; },
        [](auto* b, auto*, auto* s) { return sfmt_fmt_iii(s, b, big.data(), 3000) > 0; },
    };
    for (edit* const attempt : edits) {
        SCOPED_TRACE(&attempt - edits);
        scoped_strbuf buf;
        scoped_wsv vec(3000);
        sfmt vars;
        sfmt_init(&vars);
        wms_strbuf_append(buf, "old", 3);
        wsv_add(vec, big.data());
        long failures = 0;
        for (; failures < 10; ++failures) {
            allocations_left = failures;
            const bool done = attempt(buf, vec, &vars);
            allocations_left = LONG_MAX;
            if (done) break;
            EXPECT_STREQ(buf.buf.data, "old");
            EXPECT_EQ(wsv_length(vec) + vars.pool.length + vars.index.length, 1);
        }
        EXPECT_TRUE(failures > 0 && failures < 10) << "each fails first, and then succeeds";
        sfmt_deinit(&vars);
    }
}

}  // namespace
