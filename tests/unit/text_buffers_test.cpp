// Growing and fixed text buffers and vectors: edges, refusals, random edits against the standard
// containers, and memory that runs out. Linked with --wrap for malloc and realloc.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "runtime/aqt_vector.h"
#include "runtime/fsb.h"
#include "runtime/sfmt.h"
#include "runtime/sgml_text.h"
#include "runtime/strbuf.h"
#include "runtime/wsv.h"

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

int less_or_greater(const void* a, const void* b) {
    std::uint32_t left = 0;
    std::uint32_t right = 0;
    std::memcpy(&left, a, sizeof left);
    std::memcpy(&right, b, sizeof right);
    return left < right ? -1 : int(left > right);
}

TEST(growing_buffer, capacity_is_the_smallest_kilobyte_that_holds_text_and_nul) {
    const struct {
        int append, capacity;
    } rows[] = {{0, 1024}, {1, 1024}, {1023, 1024}, {1024, 2048}, {2047, 2048}, {2048, 3072}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.append);
        scoped_strbuf buf;
        const std::string text(std::size_t(row.append), 'x');
        EXPECT_EQ(wms_strbuf_append(buf, text.data(), row.append), 0);
        EXPECT_EQ(buf.buf.capacity, row.capacity);
        EXPECT_STREQ(buf.buf.data, text.c_str());
    }
}

TEST(growing_buffer, what_cannot_be_counted_is_refused_and_changes_nothing) {
    scoped_strbuf buf;
    wms_strbuf_fmt(buf, "%s", "");
    EXPECT_EQ(buf.buf.data, nullptr);
    ASSERT_EQ(wms_strbuf_append(buf, "abc", 3), 0);
    const wms_strbuf before = buf.buf;
    EXPECT_EQ(wms_strbuf_append(buf, "x", -1), -1);
    EXPECT_EQ(wms_strbuf_append(buf, nullptr, 1), -1);
    EXPECT_EQ(wms_strbuf_append(buf, "x", INT_MAX), -1);
    for (const std::int64_t need :
         {std::int64_t{-1}, std::int64_t{INT_MAX}, INT64_MAX, INT64_MIN}) {
        EXPECT_EQ(wms_strbuf_brk(buf, need), -1) << need;
        EXPECT_EQ(wms_strbuf_reserve(buf, need), -1) << need;
    }
    EXPECT_EQ(buf.buf.capacity, before.capacity);
    EXPECT_EQ(buf.buf.length, before.length);
    EXPECT_STREQ(buf.buf.data, "abc");
}

TEST(growing_buffer, a_fixed_buffer_is_neither_grown_nor_freed_as_one) {
    char storage[16] = "kept";
    fsb fixed;
    fsb_new(&fixed, storage, sizeof storage);
    auto* const as_growing = reinterpret_cast<wms_strbuf*>(&fixed);
    EXPECT_EQ(wms_strbuf_brk(as_growing, 2048), -1);
    wms_strbuf_free(as_growing);
    EXPECT_EQ(fixed.magic, 0U);
    EXPECT_EQ(fixed.data, nullptr);
    EXPECT_STREQ(storage, "kept");
    wms_strbuf_free(nullptr);
}

TEST(growing_buffer, a_thousand_random_edits_agree_with_a_string) {
    std::mt19937 random(20240517);
    scoped_strbuf buf;
    std::string model;
    for (int step = 0; step < 1000; ++step) {
        const std::string piece(random() % 700, char(random() % 256));
        const std::size_t from = model.empty() ? 0 : random() % model.size();
        const auto own = std::int32_t(std::min<std::size_t>(model.size() - from, 900));
        const auto operation = random() % 16;
        if (operation == 0) {
            wms_strbuf_clear(buf);
            model.clear();
        } else if (operation < 8) {
            ASSERT_EQ(wms_strbuf_append(buf, piece.data(), std::int32_t(piece.size())), 0);
            model += piece;
        } else if (operation < 11) {
            wms_strbuf_fmt(buf, "%d:%s", step, piece.c_str());
            model += std::to_string(step) + ":" + piece.c_str();
        } else if (operation < 13 && own > 0) {
            ASSERT_EQ(wms_strbuf_append(buf, buf.buf.data + from, own), 0);
            model += model.substr(from, std::size_t(own));
        } else {
            ASSERT_EQ(wms_strbuf_reserve(buf, std::int64_t(piece.size())), 0);
            ASSERT_GE(buf.buf.capacity, buf.buf.length + std::int32_t(piece.size()) + 1);
        }
        ASSERT_EQ(buf.buf.capacity % 1024, 0);
        ASSERT_EQ(buf.buf.length, std::int32_t(model.size())) << "step " << step;
        // The model's NUL takes part.
        if (buf.buf.data != nullptr) {
            ASSERT_EQ(std::memcmp(buf.buf.data, model.c_str(), model.size() + 1), 0);
        }
    }
}

TEST(fixed_buffer, counts_all_and_stores_what_fits) {
    const struct {
        bool format;
        int capacity;
        const char *text, *stored;
        int result;
    } rows[] = {
        {false, 10, "12345678", "12345678", 8},
        {false, 10, "123456789", "123456789", -9},
        {false, 10, "123456789abc", "123456789", -12},
        {true, 10, "12345678", "12345678", 8},
        {true, 10, "123456789", "12345678", -9},
        {true, 10, "123456789abc", "12345678", -12},
        {false, 1, "ab", "", -2},
        {true, 0, "ab", nullptr, -2},
        {false, -5, "ab", nullptr, -2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.capacity << " <- " << row.text << row.format);
        const std::size_t size = std::size_t(std::max(row.capacity, 0));
        const auto storage = std::make_unique<char[]>(size);
        fsb buf;
        fsb_new(&buf, storage.get(), row.capacity);
        const int result = row.format ? fsb_fmt(&buf, "%s", row.text)
                                      : fsb_append(&buf, row.text, int(std::strlen(row.text)));
        EXPECT_EQ(result, row.result);
        if (size > 0) {
            EXPECT_STREQ(storage.get(), row.stored);
        }
        fsb_clear(&buf);
        EXPECT_EQ(fsb_append(&buf, "x", -1), -1);
        EXPECT_EQ(buf.length, 0);
    }
}

TEST(fixed_buffer, seeks_anywhere_and_stores_only_within_its_storage) {
    const auto storage = std::make_unique<char[]>(8);
    fsb buf;
    fsb_new(&buf, storage.get(), 8);
    fsb_append(&buf, "abcd", 4);
    EXPECT_EQ(fsb_seek(&buf, -3, 1), 1);
    EXPECT_EQ(fsb_append(&buf, "X", 1), 2);
    EXPECT_STREQ(storage.get(), "aX");
    EXPECT_EQ(fsb_seek(&buf, -20, 2), -12);
    fsb_append(&buf, "lost", 4);
    fsb_fmt(&buf, "%s", "lost");
    EXPECT_STREQ(storage.get(), "aX");
    EXPECT_EQ(fsb_seek(&buf, INT_MAX, 0), INT_MAX);
    EXPECT_EQ(fsb_append(&buf, "x", 1), -1);
    EXPECT_EQ(fsb_seek(&buf, 1, 1), -1);
    EXPECT_EQ(buf.length, INT_MAX);
}

TEST(vector, random_edits_agree_with_a_standard_vector) {
    std::mt19937 random(99);
    scoped_wsv vec(sizeof(std::uint32_t));
    std::vector<std::uint32_t> model;
    EXPECT_EQ(wsv_bsearch(vec, nullptr, nullptr), nullptr);
    for (int step = 0; step < 1000; ++step) {
        const std::uint32_t value = std::uint32_t(random() % 64);
        const auto i = std::int32_t(random() % (model.size() + 1));
        switch (const auto operation = random() % 7) {
            case 0:
            case 1:
                operation == 0 ? wsv_del(vec, i) : wsv_del2(vec, wsv_nth(vec, i));
                if (i < int(model.size())) model.erase(model.begin() + i);
                break;
            case 2:
                wsv_sort(vec, less_or_greater);
                std::ranges::sort(model);
                ASSERT_EQ(wsv_bsearch(vec, &value, less_or_greater) != nullptr,
                          std::ranges::binary_search(model, value));
                break;
            case 3:
                if (model.empty()) break;
                wsv_add(vec, wsv_nth(vec, 0));
                model.push_back(std::uint32_t{model.front()});
                break;
            default:
                ASSERT_EQ(wsv_index(vec, wsv_add(vec, &value)), int(model.size()));
                model.push_back(value);
        }
        ASSERT_EQ(wsv_length(vec), int(model.size()));
        ASSERT_TRUE(std::ranges::equal(
            std::span(static_cast<std::uint32_t*>(wsv_nth(vec, 0)), size_t(wsv_length(vec))),
            model));
        const auto at = std::ranges::find(model, value);
        ASSERT_EQ(wsv_index(vec, wsv_lsearch(vec, &value, less_or_greater)),
                  at == model.end() ? -1 : int(at - model.begin()));
    }
}

TEST(vector, nothing_outside_it_is_reached) {
    scoped_wsv vec(sizeof(std::uint32_t));
    const std::uint32_t stranger = 7;
    ASSERT_NE(wsv_add(vec, &stranger), nullptr);
    EXPECT_EQ(wsv_index(vec, &stranger), -1);
    EXPECT_EQ(wsv_index(vec, vec.vec.buf.data + sizeof stranger), -1);
    EXPECT_EQ(wsv_nth(vec, -1), nullptr);
    EXPECT_EQ(wsv_nth(vec, 1), nullptr);
    wsv_del2(vec, &stranger);
    EXPECT_EQ(wsv_length(vec), 1);
    for (const std::uint32_t elem_size : {0U, 0x80000000U, UINT32_MAX}) {
        scoped_wsv none(elem_size);
        EXPECT_EQ(wsv_add(none, &stranger), nullptr) << elem_size;
        EXPECT_EQ(wsv_alloc(none), -1) << elem_size;
    }
}

TEST(location_vector, deletes_by_byte_distance) {
    aqt_vector vec;
    ASSERT_EQ(aqt_vector_init(&vec, sizeof(std::uint32_t)), 0);
    EXPECT_EQ(aqt_vector_init(nullptr, 4), -1);
    for (std::uint32_t value = 0; value < 6; ++value)
        aqt_vector_add(&vec, &value);
    aqt_vector_del2(&vec, aqt_vector_nth(&vec, 2));  // distance 8: beyond the count
    EXPECT_EQ(aqt_vector_length(&vec), 6);
    aqt_vector_del2(&vec, aqt_vector_nth(&vec, 1));  // distance 4: the element with value 4
    const std::uint32_t left[] = {0, 1, 2, 3, 5};
    ASSERT_EQ(aqt_vector_length(&vec), 5);
    EXPECT_EQ(std::memcmp(vec.buf.data, left, sizeof left), 0);
    aqt_vector_deinit(&vec);
}

using edit = bool(wms_strbuf*, wsv*, sfmt*, const std::string&);

// Each operation is tried with the first, second, ... allocation failing until it succeeds; until
// then it reports the failure and leaves what was there.
void fail_each_allocation(edit* attempt) {
    const std::string big(3000, 'b');
    scoped_strbuf buf;
    scoped_wsv vec(std::uint32_t(big.size()));
    sfmt vars;
    sfmt_init(&vars);
    wms_strbuf_append(buf, "old", 3);
    wsv_add(vec, big.data());
    bool done = false;
    long failures = 0;
    for (; !done && failures < 10; ++failures) {
        allocations_left = failures;
        done = attempt(buf, vec, &vars, big);
        allocations_left = LONG_MAX;
        if (done) continue;
        EXPECT_STREQ(buf.buf.data, "old");
        EXPECT_EQ(wsv_length(vec), 1);
        EXPECT_EQ(vars.pool.length + vars.index.length, 0);
    }
    EXPECT_TRUE(done);
    EXPECT_GT(failures, 1) << "it allocates, so its first attempt must fail";
    sfmt_deinit(&vars);
}

TEST(memory_that_runs_out, is_a_result_and_changes_nothing) {
    edit* const edits[] = {
        [](auto* b, auto*, auto*, auto& t) { return wms_strbuf_append(b, t.data(), 3000) == 0; },
        [](auto* b, auto*, auto*, auto& t) {
            wms_strbuf_fmt(b, "%s", t.c_str());
            return b->length > 3;
        },
        [](auto* b, auto*, auto*, auto& t) { return st_esc2(b, t.data(), 3000, true, true) > 0; },
        [](auto*, auto* v, auto*, auto& t) { return wsv_add(v, t.data()) != nullptr; },
        [](auto*, auto* v, auto*, auto&) { return wsv_alloc(v) == 1; },
        [](auto*, auto*, auto* s, auto& t) { return sfmt_add(s, t.data(), 0, "v", 0) == 0; },
        [](auto* b, auto*, auto* s, auto& t) { return sfmt_fmt_iii(s, b, t.data(), 3000) > 0; },
    };
    for (std::size_t i = 0; i < std::size(edits); ++i) {
        SCOPED_TRACE(i);
        fail_each_allocation(edits[i]);
    }
}

}  // namespace
