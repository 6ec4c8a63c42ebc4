// The model of a command's reply.
#include <climits>

#include "backend/cli_data.h"

#include "input_support.h"

namespace {

// A model over a block of the reply's exact size and the one byte more that it may use.
struct parsed_reply {
    exact_copy reply;
    scoped_cli_data model;
    explicit parsed_reply(std::string_view text) : reply(text, 1) {
        EXPECT_EQ(wuic_cli_data_parse(model, reply.data(), reply.size), 0);
    }
};

std::string shown(const char* text) {
    return text != nullptr ? text : "-";
}

// name columns x rows, headings, cells row by row as far as there are any
std::string shown(const wuic_cli_table* table) {
    std::string out = shown(table->name) + " " + std::to_string(table->columns) + "x" +
                      std::to_string(table->rows);
    for (int column = 0; wuic_cli_table_get_header(table, column) != nullptr; ++column)
        out += " " + std::string(wuic_cli_table_get_header(table, column));
    for (int row = 0; row < table->rows; ++row) {
        out += ";";
        for (int column = 0; wuic_cli_table_get_cell(table, row, column) != nullptr; ++column)
            out += " " + std::string(wuic_cli_table_get_cell(table, row, column));
    }
    return out;
}

std::string shown(const wuic_cli_data* model) {
    std::string out = "error " + shown(model->error);
    for (int i = 0; i < wuic_cli_data_get_num_data(model); ++i) {
        out += "\n" + shown(wuic_cli_data_get_name(model, i)) + "=" +
               shown(wuic_cli_data_get_value(model, i));
    }
    for (int i = 0; i < wuic_cli_data_get_num_tables(model); ++i)
        out += "\n" + shown(wuic_cli_data_get_table(model, i));
    return out;
}

TEST(replies, become_values_errors_and_tables) {
    const text_pairs rows = {
        {"<re></re>", "error -"},
        {"<re><ERROR> Invalid <b>in</b>put&gt; \n</ERROR></re>", "error Invalid input>"},
        {"<re><data name=\"A &amp; B\"> x </data><cmd name='c'>1 &lt; 2</cmd><data>n</data></re>",
         "error -\nA & B=x\nc=1 < 2\n=n"},
        {"<re><data name=\"x\"></data><data name=y>2</data><error/></re>",
         "error </re>\nx=</data><data name=y\ny=2"},
        {"<x><data name=\"a\">1</data></x><re><p><data name=\"a\">2</data></p></re>", "error -"},
        {"<re><t tn=\"T\" nc=\"2\"><th><h>a</h><h/></th><r><c>1</c><c> </c></r><r><c/><c><![CDATA["
         "<2>]]></c></r></t><t nc=1 tn=u><r><c>&quot;</c></r></t></re>",
         "error -\nT 2x2 a ; 1 ;  <2>\nu 1x1; \""},
        // A nested element's text belongs to the cell, its tags do not.
        {"<re><t nc=1><r><c>a<b>b&amp;</b><!-- - -->c</c></r><x><c>no</c></x></t></re>",
         "error -\n- 1x1; ab&c"},
        {"<re><t tn=\"none\"><r><c>1</c></r></t></re>", "error -\nnone 0x1;"},
        // A table that is not closed takes the rest, one that is empty takes nothing.
        {"<re><t tn=a nc=1 /><data name=d>v</data><t tn=b nc=1><r><c>1</c></r><r><c>2",
         "error -\nd=v\na 1x0\nb 1x2; 1; 2"},
        {"<re><t tn=a nc=1><r><c>1</c></r></re><data name=d>v</data>", "error -\na 1x1; 1"},
    };
    for (const auto& [text, expected] : rows) {
        const parsed_reply parsed(text);
        EXPECT_EQ(shown(&parsed.model.data), expected) << text;
    }
}

TEST(replies, tables_tell_their_range) {
    const std::string closed = "<t tn=a nc=1><r><c>1</c></r>";
    const std::string open = "<t nc=2><r><c>1</c>";
    const parsed_reply parsed("<re>" + closed + "</t><t nc=1/>" + open);
    const char* const begin = parsed.reply.data() + 4;
    const std::pair<const char*, std::size_t> ranges[] = {
        {begin, closed.size()},
        {begin + closed.size() + 4, 9},
        {begin + closed.size() + 13, open.size()}};
    for (int i = 0; i < 3; ++i) {
        const wuic_cli_table* const table = wuic_cli_data_get_table(&parsed.model.data, i);
        EXPECT_EQ(table->text, ranges[i].first) << i;
        EXPECT_EQ(std::size_t(table->length), ranges[i].second) << i;
    }
}

TEST(replies, lookups_take_any_case_and_the_first_of_equal_tables) {
    const parsed_reply parsed(
        "<re><data name=\"Beta\">b</data><data name=\"alpha\">a</data>"
        "<t nc=2><th><h>X</h><h>y</h></th></t>"
        "<t tn=\"T\" nc=\"1\"/><t tn=\"t\" nc=\"2\"/></re>");
    const wuic_cli_data* const model = &parsed.model.data;
    EXPECT_EQ(shown(wuic_cli_data_get_named_value(model, "ALPHA")), "a");
    EXPECT_EQ(shown(wuic_cli_data_get_named_value(model, "beta")), "b");
    EXPECT_EQ(wuic_cli_data_get_named_value(model, "gamma"), nullptr);
    EXPECT_EQ(wuic_cli_data_get_named_table(model, "t"), wuic_cli_data_get_table(model, 1));
    EXPECT_EQ(wuic_cli_data_get_named_table(model, "x"), nullptr);
    const wuic_cli_table* const table = wuic_cli_data_get_table(model, 0);
    EXPECT_EQ(wuic_cli_table_get_header_column(table, "Y"), 1);
    EXPECT_EQ(wuic_cli_table_get_header_column(table, "z"), -1);
    for (const int outside : {-1, 2, 3, INT_MIN, INT_MAX}) {
        EXPECT_EQ(wuic_cli_data_get_name(model, outside), nullptr);
        EXPECT_EQ(wuic_cli_data_get_value(model, outside), nullptr);
        EXPECT_EQ(wuic_cli_table_get_header(table, outside), nullptr);
    }
    EXPECT_EQ(wuic_cli_data_get_table(model, 3), nullptr);
}

TEST(tables, hand_out_no_cell_that_they_do_not_hold) {
    const struct {
        const char* columns;
        int result;
        bool has_last;  // row 1, column 0
    } rows[] = {{"2", -1, true},           {"3", -1, false},          {"-1", -1, false},
                {"0", -1, false},          {"2147483647", -1, false}, {"1", 0, true},
                {"99999999999", -1, false}};
    for (const auto& row : rows) {
        const std::string text = "<t nc=\"" + std::string(row.columns) +
                                 "\"><th><h>a</h></th><r><c>1</c><c>2</c></r><r><c>3</c></r><r/>";
        const exact_copy copy(text, 1);
        wuic_cli_table table;
        wuic_cli_table_init(&table);
        EXPECT_EQ(wuic_cli_table_parse(&table, copy.data(), copy.size), row.result) << row.columns;
        EXPECT_EQ(wuic_cli_table_get_cell(&table, 1, 0) != nullptr, row.has_last) << row.columns;
        for (const int outside : {-1, 3, INT_MAX, INT_MIN}) {
            EXPECT_EQ(wuic_cli_table_get_cell(&table, outside, 0), nullptr);
            EXPECT_EQ(wuic_cli_table_get_cell(&table, 1, outside), nullptr);
            EXPECT_EQ(wuic_cli_table_get_header(&table, std::max(outside, 1)), nullptr);
        }
        EXPECT_EQ(wuic_cli_table_get_cell(&table, 2, 2), nullptr);  // 2^32 in the widest table
        wuic_cli_table_deinit(&table);
    }
    const exact_copy empty("<t nc=-1>", 1);
    wuic_cli_table table;
    wuic_cli_table_init(&table);
    EXPECT_EQ(wuic_cli_table_parse(&table, empty.data(), empty.size), -1);
    wuic_cli_table_deinit(&table);
}

}  // namespace
