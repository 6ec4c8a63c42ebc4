// The configuration API's request line: what it says, and what is not put into one.
#include "runtime/strbuf.h"

#include "api/api_handlers.h"
#include "api/request_line.h"

#include "input_support.h"

namespace {

struct config_api : request_fixture {
    std::string line(const char* uri, const char* operation, const std::string& payload) const {
        const exact_copy text(payload + '\0');
        const malloc_text made{parse_uri(uri, operation, text.data(), payload.size())};
        return made ? made.get() : "none";
    }
};

TEST_F(config_api, RequestLines) {
    constexpr const char* get = "get_api";
    constexpr const char* show = "json";
    constexpr const char* set = "operation=set";
    const struct {
        const char *operation, *uri, *payload, *line;
    } rows[] = {
        {get, "/v1/configuration/objects", "x", "get_api&objname=all&config_path=/hq/mynode&x"},
        {get, "//v1///configuration/container//c/spare/more", "config_path=/a&x",
         "get_api&container=c&config_path=/a&x"},
        {get, "/v1/configuration/object/a%26%22?x", "x",
         "get_api&objname=a%26%22&config_path=/hq/mynode&x"},
        {show, "/v1/configuration/showcommand?", "c", "json&config_path=/hq/mynode&data=json=1&c"},
        {show, "/v1/configuration/showcommand/b", "c",
         "json&config_path=/hq/mynode&data={ \"b\" : c }"},
        {set, "/v1/configuration/object?config_path", "{}", "operation=set&config_path=&data={}"},
        {set, "/v1/configuration/object/ALL", "",
         "operation=set&config_path=/hq/mynode&data={ \"ALL\" : {} }"},
        {set, "/v1/configuration/object/a?config_path=%252Fa+b%26lt;", "1",
         "operation=set&config_path=/a b<&data={ \"a\" : 1 }"},
        {set, "/v1/configuration/object/CONFIGREPLACEx", "",
         "operation=set&config_path=/hq/mynode&covert_op=CONFIGREPLACEx&data={{}}"},
        {set, "/v1/configuration/object/fileupload?file_name=a%2fb", "1",
         "operation=set&config_path=/hq/mynode&covert_op=fileupload&file_name=a/b&data={1}"},
        // Nothing to ask with; a second field, line or member.
        {get, "/v1/configuration/object/a", "", "none"},
        {get, "/v1/configuration/object/a&config_path=/b", "x", "none"},
        {get, "/v1/configuration/container&x/a", "x", "none"},
        {set, "/v1/configuration/object/a\"b", "1", "none"},
        {set, "/v1/configuration/object/a\nb", "1", "none"},
        {set, "/v1/configuration/object/a?config_path=/a%26data=", "1", "none"},
        {set, "/v1/configuration/object/a?config_path=/a%2526amp;", "1", "none"},
        {set, "/v1/configuration/object/a?config_path=/a%2500b", "1", "none"},
        {set, "/v1/configuration/object/a?file_name=a%00b", "1", "none"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.uri);
        EXPECT_EQ(line(row.uri, row.operation, row.payload), row.line);
    }
}

TEST_F(config_api, ALongLineIsCutBehindItsRoom) {
    const std::string uri = "/v1/configuration/object?config_path=/" + std::string(222, 'p');
    const std::string whole = line(uri.c_str(), "operation=set", "12345");
    EXPECT_EQ(whole.size(), 5 + 255U);
    EXPECT_TRUE(whole.ends_with("&data=12345"));
    EXPECT_TRUE(line((uri + 'p').c_str(), "operation=set", "12345").ends_with("p&data=1234"));
}

TEST_F(config_api, OtherMethodsAndAMissingUriAreNotSupported) {
    const char* const uri = "/v1/configuration/object/a";
    for (const auto& [method, path] : {std::pair{"PUT", uri}, {"DELETE", uri}, {"GET", nullptr}}) {
        set("REQUEST_METHOD", method);
        set("REQUEST_URI", path);
        scoped_strbuf response;
        EXPECT_EQ(exec_configuration("", response, &request.session, nullptr, input), 0);
        EXPECT_STREQ(response.buf.data,
                     "Content-Type: application/json\r\nExpires: 0\r\n\r\n"
                     R"({"Error": "Method not supported"})");
    }
}

}  // namespace
