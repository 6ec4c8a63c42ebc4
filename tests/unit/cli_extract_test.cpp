// What is pulled out of single replies, well-formed or not.
#include "backend/cli_extract.h"

#include <functional>

#include "runtime/sfmt.h"

#include "backend/sgml_tokenizer.h"

#include "service_support.h"

namespace {

const session_record session = {};

std::string outcome(int result, const std::string& written) {
    return std::to_string(result) + '|' + written;
}

// Each returns the result and what was written.
using extractor = std::function<std::string()>;

extractor portspeed(const char* port, std::int32_t size = 64) {
    return [=] {
        char speed[64];
        char duplex[64];
        const int result = get_portspeed(&session, port, speed, size, duplex, size);
        return outcome(result, speed) + '|' + duplex;
    };
}

extractor aliases(std::size_t size) {
    return [=] {
        std::vector<char> out(size, '#');
        const int result = get_aliases(&session, out.data(), std::int32_t(size));
        return outcome(result, out.data());
    };
}

extractor parm(const char* label, const char* profile) {
    return [=] {
        scoped_strbuf out;
        const int result = get_profile_parm(out, &session, "show", label, "<v>%s</v>", profile);
        return outcome(result, text_of(out.buf));
    };
}

std::string portal() {
    scoped_strbuf out;
    const int result = get_cpprofile_parms(out, &session, "p&1");
    return outcome(result, text_of(out.buf));
}

std::string relays() {
    sfmt vars;
    sfmt_init(&vars);
    const int result = populate_vlan_iphelper(&vars, &session);
    scoped_strbuf out;
    sfmt_fmt_iii(&vars, out, "<%vlan_iphelper%>", 17);
    sfmt_deinit(&vars);
    return outcome(result, text_of(out.buf));
}

TEST(CliExtract, CommandsAndWhatTheirRepliesHold) {
    const std::string config = "wuic:get-running-config?appid=8214";
    const std::string ahead = R"(<re><t tn="aliases" nc="2"><th><h>alias</h></th>)";
    const std::string rhead =
        "<re><t tn=\"extdhcp\" nc=\"2\">\n<th><h>vlanId</h><h>dhcp</h></th>\n";
    const std::string tail = "</t></re>";
    const std::string a_row = "<r><c>srv</c></r>";
    const std::string two = "<re><cmd>netdestination srv</cmd><cmd>netdestination b</cmd></re>";
    const std::size_t for_one = (ahead + a_row + tail).size() + 1;
    const std::string failed = "-1|autoerr|autoerr";
    const struct {
        extractor run;
        std::string command;
        std::string reply;
        std::string expected;
        std::string message = {};
    } rows[] = {
        {portspeed("1/1\nreload"), "show port status 1/1",
         "<re><data>a (b) Configured: Duplex (full), Speed (1</data>"
         "<data>Configured: Duplex (late) (late)</data></re>",
         failed},
        {portspeed("2"), "show port status 2",
         "<re><cmd>Configured: Duplex (no), Speed (no)</cmd><data n='x'><![CDATA[(b) Configured: "
         "Duplex (f&), Speed (1 <Gb>)]]></data></re>",
         "0|1 &lt;Gb&gt;|f&amp;"},
        {portspeed("", 8), "show port status ", "<data>Configured: Duplex (a) (12345678)", failed},
        {portspeed("2"), "show port status 2", "<data>Configured: Duplex (a) (b)", failed, "No"},

        {aliases(900), config,
         "<re><cmd>netdestination a &amp; b</cmd><cmd>netdestination6 c</cmd>"
         "<cmd><![CDATA[netdestination <d> é]]></cmd><x>netdestination e</x><cmd>netdestin",
         "0|" + ahead + "<r><c>a &amp; b</c></r><r><c>&lt;d&gt; é</c></r>" + tail},
        {aliases(for_one), config, two, "0|" + ahead + a_row + tail},
        {aliases(for_one - 1), config, two, "0|" + ahead + tail},
        {aliases(ahead.size() + tail.size()), config, two, "-1|"},
        {aliases(900), config, two, "-1|" + ahead + tail, "No"},

        {parm("Login page", "p 1"), "show p 1",
         "<re><t><th><h>Login</h></th><r><c>Login</c><c>a &amp; %s</c><c>no</c></r><r><c></c>"
         "<c>no</c></r><r><c/><c>no</c></r><r/><c>Login</c><c>no</c><r><c>Login page</c></r>"
         "<r><c>Login pages</c><c>no</c></r><r><c>Log</c><c>b<!-- --><i>c</i></c></r></t></re>",
         "0|<v>a &amp; %s</v><v>bc</v>"},
        {parm("a<b", "p\r\nx"), "show p",
         "<re><r><c><![CDATA[a<b]]></c><c><![CDATA[</v><script>]]></c></r>"
         "<r><c>a&lt;b</c><c>no</c></r><r><c>a</c><c>cut</c>",
         "0|<v>&lt;/v&gt;&lt;script&gt;</v>"},
        {portal, "show aaa authentication captive-portal p&1",
         "<re><t><r><c>Login page</c><c>/l</c></r><r><c>Login</c><c>no</c></r>"
         "<r><c>Guest Login</c><c></c></r><r><c>Default Role</c></r></t></re>",
         "0|<lpage>/l</lpage><glogin></glogin>"},

        {relays, config,
         "<re><cmd>ip helper-address 9.9.9.9</cmd><cmd>interface vlan 1</cmd><cmd>interface vlan "
         "30</cmd><cmd>ip helper-address 10.0.0.1</cmd><cmd>ip helper-address 10.0.0.2 x</cmd>"
         "<cmd>interface vlan 99999999999</cmd><cmd>ip helper-address &" +
             std::string(300, 'a'),
         "0|" + rhead + "<r><c>30</c><c>10.0.0.1 10.0.0.2</c></r><r><c>999999999</c><c>&amp;" +
             std::string(30, 'a') + "</c></r>" + tail},
        {relays, config,
         "<re><cmd>vlan 5\r\ninterface vlan 5\n\n  ip helper-address\n  ip helper-address "
         "10.0.0.3\n"
         "</cmd><cmd>\tip helper-address 10.0.0.4\ninterface vlan 6</cmd></re>",
         "0|" + rhead + "<r><c>5</c><c>10.0.0.3 10.0.0.4</c></r>" + tail},
        {relays, config, two, "0|" + rhead + tail, "No"},
    };
    for (const auto& [run, command, reply, expected, message] : rows) {
        SCOPED_TRACE(reply);
        fake_helper helper(wire_reply(reply, message));
        EXPECT_EQ(run(), expected);
        EXPECT_EQ(helper.asked().back(), command);
    }
}

std::string column(const std::string& reply, const char* table, const char* label) {
    sgml_tokenizer tokenizer;
    sgml_tokenizer_init(&tokenizer, reply.data(), std::int32_t(reply.size()));
    if (get_tableData(&tokenizer, table) == 0) return "none";
    scoped_strbuf out;
    const int result = get_columnData(&tokenizer, label, "%s;", out);
    const bool more = sgml_tokenizer_next(&tokenizer) > 0;
    return outcome(result, text_of(out.buf)) + (more ? "|more" : "");
}

TEST(CliExtract, ColumnsOfNamedTables) {
    const std::string reply =
        "<re><t><r><c>no</c></r></t><t tn=empty/>"
        "<t tn='a &amp; b'><th><h/><h>Na</h><h>Name</h></th><r><c>1</c>"
        "<c><![CDATA[<2>]]></c><c>3</c></r><r><c/></r><r><c/><c>&lt;</c></r></t>"
        "<t tn=bare><r><c>Type</c><c>Name</c></r><r><c>1</c><c>2</c></r><r><c/><c>4";
    const char* const rows[][3] = {
        {"a & b", "Name of it", "0|&lt;2&gt;;&lt;;|more"},
        {"a & b", "Type", "-1||more"},
        {"empty", "Name", "-1||more"},
        {"bare", "Name", "0|2;4;"},
        {"Bare", "Name", "none"},
        {"", "Name", "none"},
    };
    for (const auto& [table, label, expected] : rows)
        EXPECT_EQ(column(reply, table, label), expected) << table << ' ' << label;
}

TEST(CliExtract, ServersOfAGroup) {
    const std::string reply =
        "<re><t><th><h>Name</h></th><r><c><![CDATA[a&b]]></c><c><![CDATA[]]></c>"
        "<c>x</c></r><r><c>c</c><c>Radius</c></r><r><c>d</c></r></t></re>";
    scoped_strbuf out;
    iparse_srvgrp_output(out, reply.data(), std::int32_t(reply.size()));
    EXPECT_EQ(text_of(out.buf),
              "<row><sname>a&amp;b</sname><stype></stype></row>"
              "<row><sname>c</sname><stype>Radius</stype></row>"
              "<row><sname>d</sname><stype></stype></row>");
}

}  // namespace
