// What a request says about itself: its cookies and the two ends of its connection.
#include <string>

#include <gtest/gtest.h>

#include "runtime/request.h"

#include "auth/connection_info.h"
#include "auth/cookie.h"

namespace {

TEST(request_identity, cookies_are_found_by_text_and_end_at_the_semicolon) {
    const request_record request;
    const auto raw = [](const std::string& header) {
        return std::string(cp_get_cookie(header.c_str(), "sid", false));
    };
    EXPECT_EQ(raw("a=1; sid=x%41+y; b=2"), "x%41+y");
    EXPECT_EQ(raw("xsid=1; sid=2"), "1");
    EXPECT_EQ(raw("sid; sidsid=3"), "3");
    EXPECT_EQ(raw("sid=" + std::string(5000, 'c')).size(), 4095U);
    EXPECT_STREQ(cp_get_cookie("a=1; sid=x%41+y; b=2", "sid", true), "xA y");
    EXPECT_EQ(cp_get_cookie(("sid=" + std::string(5000, 'c')).c_str(), "sid", true),
              std::string(4095, 'c'));
    // An escape that the ";" cuts short takes nothing of the next cookie.
    EXPECT_EQ(std::string(cp_get_cookie("sid=a%;41", "sid", true)).find('4'), std::string::npos);
    EXPECT_EQ(cp_get_cookie(nullptr, "sid", true), nullptr);
    EXPECT_EQ(cp_get_cookie("sid; sod=1; si=d", "sid", false), nullptr);
}

TEST(request_identity, connection_info_is_bounded_and_https_means_anything_but_on) {
    for (const auto& [https, flag] :
         {std::pair<const char*, int>{nullptr, 0}, {"on", 0}, {"", 1}}) {
        request_record request;
        ASSERT_EQ(cgi_set_var(&request.input, "HTTPS", https), 0);
        ASSERT_EQ(cgi_set_var(&request.input, "REMOTE_ADDR", std::string(40, '1').c_str()), 0);
        ASSERT_EQ(cgi_set_var(&request.input, "REMOTE_PORT", "4711"), 0);
        connection_info got;
        wuic_get_connection_info(&request.input, &got);
        EXPECT_EQ(got.https_flag, flag);
        EXPECT_EQ(got.remote_addr + std::to_string(got.remote_port), std::string(31, '1') + "4711");
        EXPECT_EQ(got.server_addr + std::to_string(got.server_port), "0");
    }
}

}  // namespace
