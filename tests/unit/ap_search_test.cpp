// The rows of a search on their way from the server into the response.
#include <array>
#include <string>

#include <gtest/gtest.h>

#include "platform/paths.h"

#include "runtime/database.h"
#include "runtime/error_response.h"
#include "runtime/strbuf.h"

#include "monitor/search_rows.h"

namespace {

constexpr auto fields = std::to_array<search_field>({{.tag = "a", .column = 0}});

struct stream_case {
    const char* sql;
    int result;
    std::string answer;
};

TEST(ApSearch, RowsOfAQueryThatIsBrokenOffAreTakenBack) {
    const std::string refused = std::string("before") + xml_header +
                                "<qorin>\n  <status>Error</status>\n  <reason>ERROR:  ";
    const stream_case cases[] = {
        {.sql = "SELECT '<' FROM generate_series(1, 2)",
         .result = 2,
         .answer = "before[<start>7</start>\n<length>2</length>\n<total>9</total>\n"
                   "<r>\n<a><![CDATA[&lt;]]></a>\n</r>\n<r>\n<a><![CDATA[&lt;]]></a>\n</r>\n"},
        {.sql = "SELECT 1 WHERE false",
         .result = 0,
         .answer = "before[<start>7</start>\n<length>0</length>\n<total>9</total>\n"},
        {.sql = "SELECT 1 / (5 - n) FROM generate_series(1, 9) n",
         .result = -1,
         .answer = refused + "division by zero\n</reason>\n</qorin>\n"},
        {.sql = "SELECT 1; SELECT 2",
         .result = -1,
         .answer = refused +
                   "cannot insert multiple commands into a prepared statement\n</reason>\n"
                   "</qorin>\n"},
    };
    ASSERT_TRUE(database_init());
    const db_conn db = database_connect(paths::db_gap);
    for (const stream_case& row : cases) {
        SCOPED_TRACE(row.sql);
        scoped_strbuf out;
        wms_strbuf_fmt(out, "before");
        const int result = search_emit_rows(out, db.get(), row.sql, "r", fields);
        EXPECT_EQ(result, row.result);
        if (result >= 0) {
            const search_counts counts{.before = "[", .start = 7, .length = result, .total = 9};
            EXPECT_EQ(search_insert_counts(out, 6, counts), 0);
        }
        EXPECT_EQ(std::string(out.buf.data), row.answer);
        EXPECT_EQ(search_count(db.get(), row.sql), row.result);
    }
}

}  // namespace
