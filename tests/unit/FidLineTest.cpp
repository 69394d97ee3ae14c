#include "FidLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "IFunctionID.h"
#include "LogCapture.h"
#include "MDMFidDistributor.h"
#include "Words.h"
#include "sal/CmdParameters.h"

namespace {

FidLine lineOf(const std::string& text) {
    return FidLine(base::splitWords(text).words);
}

/// The driver A, which keeps what it got last.
class Driver : public IFunctionID {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        got = {fid, parameters};
        return true;
    }
    bool subscribe(const std::string&) const override { return true; }
    bool showState() const override { return true; }

    mutable std::pair<std::string, FIDParameterList> got;
};

class FidLineAsSent : public testing::TestWithParam<const char*> {};

}  // namespace

TEST(FidLine, ShowsFidAndParametersInQuotes) {
    EXPECT_EQ(lineOf("sendFID LAMP.TEXT text=hello size = 5").text(),
              "\"LAMP.TEXT\" with \"text\"=\"hello\" \"size\"=\"5\"");
    EXPECT_EQ(lineOf("sendFID LAMP.ON").text(), "\"LAMP.ON\"");
}

TEST(FidLine, WordWithoutAnEqualsSignIsStray) {
    EXPECT_TRUE(lineOf("sendFID LAMP.TEXT text=hello world").hasStrayWord);
    EXPECT_EQ(lineOf("sendFID LAMP.TEXT text=hello world").text(),
              "\"LAMP.TEXT\" with \"text\"=\"hello\" \"world\"=\"\"");
    EXPECT_TRUE(lineOf("sendFID LAMP.TEXT text hello").hasStrayWord);
    EXPECT_TRUE(lineOf("sendFID LAMP.TEXT =hello").hasStrayWord);
}

TEST(FidLine, NothingIsStrayWhereEachParameterHasItsEqualsSign) {
    EXPECT_FALSE(lineOf("sendFID LAMP.ON").hasStrayWord);
    EXPECT_FALSE(lineOf("sendFID LAMP.TEXT a=5 b= 5 c =5 d = 5 e=").hasStrayWord);
    EXPECT_FALSE(lineOf("sendFID LAMP.TEXT 'text=hello world'").hasStrayWord);
}

TEST_P(FidLineAsSent, SaysWhatTheModulesCommandSends) {
    const LogCapture log;
    MDMFidDistributor module;
    const Driver driver;
    module.addDriverPort("A", const_cast<Driver*>(&driver));
    std::vector<std::string> words = base::splitWords(GetParam()).words;
    const FidLine sut(words);
    words.erase(words.begin());
    sal::CmdParameters parameters(words);
    ASSERT_TRUE(module.shellCmdSendFID(parameters));
    EXPECT_EQ("A." + driver.got.first, sut.fid);
    EXPECT_EQ(driver.got.second, sut.parameters);
}

INSTANTIATE_TEST_SUITE_P(Of, FidLineAsSent,
                         testing::Values("sendFID A.X", "sendFID A.X a=5", "sendFID A.X a= 5",
                                         "sendFID A.X a =5", "sendFID A.X a = 5", "sendFID A.X a 5",
                                         "sendFID A.X a",
                                         "sendFID A.X a=", "sendFID A.X a =", "sendFID A.X =5",
                                         "sendFID A.X = 5", "sendFID A.X = =", "sendFID A.X a=b=c d",
                                         "sendFID A.X a==b", "sendFID A.X a 'b c' d=e f",
                                         "sendFID A.X a = = b", "sendFID A.X '' b", "sendFID A.X a '' b=1"));
