// Names of models and vendors: the tables, made as they are installed, and damaged ones.
#include "monitor/ap_names.h"

#include "platform/model_names.h"
#include "platform/vendor_names.h"

#include "input_support.h"

namespace {

TEST(model_names, whole_codes_only) {
    const exact_copy table{"20\tTwenty\n2\tTwo\nbare\n200\tTwo hundred"};
    for (const auto& [code, name] : text_pairs{{"2", "Two"},
                                               {"20", "Twenty"},
                                               {"200", "Two hundred"},
                                               {"bare", ""},
                                               {"2\tTwo\n200", ""}})
        EXPECT_EQ(model_name_find(table.view(), code), name) << code;
}

// A large block, with a medium one at its head, a small one in that one, and a small one at its
// end; the next address is nobody's, and the last block ends where addresses do.
std::string made_table() {
    const std::string head = "Registry,Assignment,Organization Name,Organization Address\r\n";
    put_file("/tmp/oui.csv", head + "MA-L,001B21,\"Große, Inc.\",x\r\nMA-L,001B21,Second,x\r\n" +
                                 "MA-L,FFFFFF,Last,x\r\n");
    put_file("/tmp/mam.csv", head + "MA-M,001B210,Medium,x\r\n");
    put_file("/tmp/oui36.csv", head + "MA-S,001B21001,Small,x\r\nMA-S,001B21FFF,End,x\r\n");
    put_file("/tmp/iab.csv", head);
    // By its name in the sandbox: its own may be below /tmp, which these tests have for themselves.
    EXPECT_EQ(std::system("/checkout/deploy/platform/vendor_table.py /tmp /tmp/table"), 0);
    return contents("/tmp/table");
}

TEST(vendor_names, the_smallest_block_around_an_address_in_any_notation) {
    const std::string table = made_table();
    for (const auto& [mac, vendor] : text_pairs{{"00:00:00:00:00:00", ""},
                                                {"00:1b:21:00:00:00", "Medium"},
                                                {"00-1B-21-00-10-00", "Small"},
                                                {"001B21002000", "Medium"},
                                                {"001b.21ff.efff", "Große, Inc."},
                                                {"00:1b:21:ff:ff:ff", "End"},
                                                {"00:1b:22:00:00:00", ""},
                                                {"ff:ff:ff:ff:ff:ff", "Last"},
                                                {"00:1b:21:00:00:0", ""},
                                                {"00:1b:21:00:00:000", ""}})
        EXPECT_EQ(vendor_name_find(table, mac.c_str()), vendor) << mac;
}

TEST(vendor_names, a_damaged_table_is_never_read_beyond) {
    const std::string table = made_table();
    for (std::size_t kept = 0; kept < table.size(); ++kept) {
        const exact_copy cut{table.substr(0, kept)};
        EXPECT_EQ(vendor_name_find(cut.view(), "ff:ff:ff:ff:ff:ff"), "") << kept;
        std::string changed = table;
        changed[kept] = '\xFF';
        const exact_copy bad{changed};
        for (const char* mac : {"00:00:00:00:00:00", "00:1b:21:00:10:00", "ff:ff:ff:ff:ff:ff"})
            static_cast<void>(vendor_name_find(bad.view(), mac));
    }
}

TEST(ap_names, without_tables_a_code_stands_for_itself_within_its_room) {
    const request_record request;
    for (const auto& [code, expected] :
         {std::pair{"ABCDEFG", "ABCDEFG"}, {"ABCDEFGH", "ABCDEFG"}, {"", ""}, {nullptr, ""}}) {
        char out[8];
        EXPECT_STREQ(oem_ap_user_visible_model(code, out, sizeof out), expected);
        EXPECT_STREQ(oui_to_vendor(code, out, sizeof out), "");
    }
}

}  // namespace
