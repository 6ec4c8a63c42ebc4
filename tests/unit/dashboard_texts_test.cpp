// Texts that the dashboard makes itself: saved reports, output of shell commands.
#include <sys/sysmacros.h>
#include <utime.h>

#include "monitor/custom_reports.h"
#include "monitor/shell_capture.h"

#include "service_support.h"

namespace {

const std::string reports_head =
    "<re><t tn='custom-reports'><th><h>name</h><h>type</h><h>url</h><h>time</h></th>";

std::string reports() {
    scoped_strbuf out;
    EXPECT_EQ(wuic_uih_custom_reports_to_cli(out), 0);
    return text_of(out.buf);
}

void save_reports(const std::string& text, std::time_t modified) {
    mkdir("/flash/upload", 0755);
    std::ofstream(paths::custom_reports, std::ios::binary) << text;
    const utimbuf times = {.actime = modified, .modtime = modified};
    utime(paths::custom_reports, &times);
}

std::string report(const std::string& name) {
    return "<cr><name>" + name + "</name><type>ty</type><url>u</url><t>1</t></cr>";
}

std::string row(const std::string& name) {
    return "<r><c>" + name + "</c><c>ty</c><c>u</c><c>1</c></r>";
}

TEST(CustomReports, TextsStayMarkupWhateverTheyCameAs) {
    const std::string n250(250, 'n');
    const std::string n254 = n250 + "nnnn";
    const std::pair<std::string, std::string> rows[] = {
        {"", ""},
        {"<qorin>" + report("a &amp; b") + report(" <i>c</i>d ") + "</qorin>",
         row("a &amp; b") + row(" cd ")},
        {"<qorin>" + report("<![CDATA[<\xC3\xBC>&]]]]>"), row("&lt;\xC3\xBC&gt;&amp;]]")},
        {"<qorin><cr><t>9</t><url/><type>q</type><type>r</type><name>n</name></cr></qorin>",
         "<r><c>n</c><c>r</c><c></c><c>9</c></r>"},
        {"<qorin><cr><name>other row</name></cr>" + report("a") + "</qorin>", row("a")},
        {"<other>" + report("a") + "</other>", ""},
        {"<qorin>" + report("a") + "<cr><name>cut", row("a")},
        // Cut at 255 bytes, before what would be split.
        {"<qorin>" + report(n250 + "nn&lt;n"), row(n250 + "nn")},
        {"<qorin>" + report(n250 + "n&lt;n"), row(n250 + "n&lt;")},
        {"<qorin>" + report(n250 + "n&nnn;;"), row(n250 + "n")},
        {"<qorin>" + report(n250 + "&nnn nn"), row(n250 + "&nnn ")},
        {"<qorin>" + report(n254 + "\xC3\xBC"), row(n254)},
        {"<qorin>" + report("<![CDATA[" + n250 + "nn<<]]>"), row(n250 + "nn")}};
    for (const auto& [file, expected] : rows) {
        SCOPED_TRACE(file);
        const request_record request;
        save_reports(file, 1);
        EXPECT_EQ(reports(), reports_head + expected + "</t></re>\n");
    }
}

TEST(CustomReports, AreReadAgainWhenTheFileHasAnotherTime) {
    const request_record request;
    unlink(paths::custom_reports);
    EXPECT_EQ(reports(), reports_head + "</t></re>");
    save_reports("<qorin>" + report("a") + "</qorin>", 1);
    const std::string first = reports();
    EXPECT_EQ(first, reports_head + row("a") + "</t></re>\n");
    save_reports("<qorin></qorin>", 1);
    EXPECT_EQ(reports(), first);
    unlink(paths::custom_reports);
    EXPECT_EQ(reports(), first);
    save_reports("<qorin></qorin>", 2);
    EXPECT_EQ(reports(), reports_head + "</t></re>\n");
}

std::string captured(const char* command) {
    scoped_strbuf out;
    shell_capture(out, command);
    return text_of(out.buf);
}

TEST(ShellCapture, GivesTheOutputOrTheFailure) {
    ASSERT_EQ(mknod("/dev/null", S_IFCHR | 0666, makedev(1, 3)), 0);  // a child's input
    EXPECT_EQ(captured("printf 'a%s' b"), "ab");
    EXPECT_EQ(captured("yes | head -c 70000").size(), std::size_t{shell_output_max});
    const std::string failure = captured("printf lost; sh -c 'exit 3'");
    EXPECT_TRUE(failure.starts_with("cmd=printf lost; sh -c 'exit 3' > /tmp/cli-")) << failure;
    EXPECT_TRUE(failure.ends_with(", r=3\n")) << failure;
    ASSERT_EQ(mount("none", "/tmp", nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(captured("echo x"), "");
    ASSERT_EQ(mount("none", "/tmp", nullptr, MS_REMOUNT, nullptr), 0);
}

}  // namespace
