#include "CheckReport.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

const std::vector<Finding> g_findings{
    {Finding::ESeverity::Error, "/w.xml", 3, "the driver ID \"A/B\" holds \"/\""},
    {Finding::ESeverity::Warning, "/w.xml", 0, "holds no element"}};

std::string text(const CheckReport& sut) {
    std::ostringstream out;
    sut.writeText(out);
    return out.str();
}

std::string json(const CheckReport& sut) {
    std::ostringstream out;
    sut.writeJson(out);
    return out.str();
}

}  // namespace

TEST(CheckReport, TextHasALineForEachFindingAndOneThatCounts) {
    EXPECT_EQ(
        "error: /w.xml line 3: the driver ID \"A/B\" holds \"/\"\n"
        "warning: /w.xml holds no element\n"
        "/w.xml: 1 error, 1 warning\n",
        text(CheckReport("/w.xml", g_findings)));
}

TEST(CheckReport, TextWithoutFindingsOnlyCounts) {
    EXPECT_EQ("/w.xml: 0 errors, 0 warnings\n", text(CheckReport("/w.xml", {})));
}

TEST(CheckReport, JsonHoldsEachFinding) {
    EXPECT_EQ(
        "{\"file\": \"/w.xml\", \"errors\": 1, \"warnings\": 1, \"findings\": [\n"
        "  {\"severity\": \"error\", \"file\": \"/w.xml\", \"line\": 3, \"text\": \"the driver ID "
        "\\\"A/B\\\" holds \\\"/\\\"\"},\n"
        "  {\"severity\": \"warning\", \"file\": \"/w.xml\", \"line\": null, \"text\": \"holds no "
        "element\"}\n]}\n",
        json(CheckReport("/w.xml", g_findings)));
}

TEST(CheckReport, JsonWithoutFindingsHasAnEmptyList) {
    EXPECT_EQ("{\"file\": \"/w.xml\", \"errors\": 0, \"warnings\": 0, \"findings\": []}\n",
              json(CheckReport("/w.xml", {})));
}

TEST(CheckReport, NothingOfAFileReachesATerminalAsItIs) {
    const std::string file = "/\x1b[2J\xc2\x9b.xml";
    const CheckReport sut(file, {{Finding::ESeverity::Warning, file, 2, "the root is <\a\x9b>"}});
    EXPECT_EQ(
        "warning: /\\x1b[2J\\u009b.xml line 2: the root is <\\x07\\x9b>\n"
        "/\\x1b[2J\\u009b.xml: 0 errors, 1 warning\n",
        text(sut));
    EXPECT_EQ(
        "{\"file\": \"/\\u001b[2J\\u009b.xml\", \"errors\": 0, \"warnings\": 1, \"findings\": [\n"
        "  {\"severity\": \"warning\", \"file\": \"/\\u001b[2J\\u009b.xml\", \"line\": 2, \"text\": "
        "\"the root is <\\u0007\xef\xbf\xbd>\"}\n]}\n",
        json(sut));
}

TEST(CheckReport, OnlyAnErrorIsAnError) {
    EXPECT_TRUE(CheckReport("/w.xml", g_findings).hasErrors());
    EXPECT_FALSE(CheckReport("/w.xml", {g_findings[1]}).hasErrors());
}
