#include "SendCommand.h"

#include "RemoteFixture.h"

namespace {

class SendCommandTest : public RemoteFixture {
protected:
    EExit send(const std::vector<std::string>& words, bool asJson = false) {
        auto remote = control(asJson);
        return SendCommand(remote).run("SYS.MARK", words, "delivered", std::chrono::milliseconds(5000));
    }
};

}  // namespace

TEST_F(SendCommandTest, SendsTheParametersInTheirOrder) {
    m_host.answer("POST /fid",
                  R"({"request":"r","fid":"SYS.MARK","driver":"SYS","stage":"delivered","tookUs":1234})");
    EXPECT_EQ(EExit::Done, send({"text=hello world", "b=x=y", "a="}));
    EXPECT_EQ(
        Json::parse(
            R"({"fid":"SYS.MARK","parameters":[["text","hello world"],["b","x=y"],["a",""]],"wait":"delivered"})"),
        members("POST /fid"));
    EXPECT_EQ(5000, timeoutOf("POST /fid"));
    EXPECT_EQ("SYS.MARK delivered (SYS, 1.2 ms)\n", out());
}

TEST_F(SendCommandTest, WithoutParametersAnEmptyListIsSent) {
    m_host.answer("POST /fid", R"({"fid":"SYS.MARK","driver":"SYS","stage":"written","tookUs":80})");
    EXPECT_EQ(EExit::Done, send({}));
    EXPECT_EQ(Json::array(), members("POST /fid")["parameters"]);
    EXPECT_EQ("SYS.MARK written (SYS, 80 us)\n", out());
}

TEST_F(SendCommandTest, ResultOfTheDriverIsToldAndFalseFails) {
    m_host.answer("POST /fid", R"({"driver":"SYS","stage":"delivered","result":false,"tookUs":2500000})");
    EXPECT_EQ(EExit::Failed, send({}));
    EXPECT_EQ("SYS.MARK delivered (SYS, 2.5 s); the driver answered false\n", out());
}

TEST_F(SendCommandTest, WordWithoutEqualsSendsNothing) {
    EXPECT_EQ(std::pair(EExit::WrongUsage,
                        std::string("\"hello\" is no NAME=VALUE, nothing was sent; name the parameter, as in "
                                    "NAME='hello'")),
              errorOf([&] { send({"hello"}); }));
    EXPECT_EQ(std::pair(EExit::WrongUsage,
                        std::string("\"=5\" is no NAME=VALUE, nothing was sent; the name before the \"=\" is "
                                    "missing")),
              errorOf([&] { send({"=5"}); }));
    EXPECT_TRUE(m_host.requests().empty());
}

TEST_F(SendCommandTest, StrayWordOfAnUnquotedTextIsToldAsItWasMeant) {
    EXPECT_EQ(std::pair(EExit::WrongUsage,
                        std::string("\"world\" is no NAME=VALUE, nothing was sent; if it belongs to the word "
                                    "before it, quote both: text='it'\\''s world'")),
              errorOf([&] {
                  send({"x=5", "text=it's", "world"});
              }));
    EXPECT_TRUE(m_host.requests().empty());
}

TEST_F(SendCommandTest, FidThatReachesNobodyFailsWithTheReason) {
    m_host.answer("POST /fid",
                  R"({"error":{"code":"fid-undelivered","reason":"no-such-driver",
                     "text":"SYX.MARK reached nobody: there is no driver SYX","nearest":["SYS"]}})",
                  409);
    EXPECT_EQ(std::pair(EExit::Failed,
                        std::string("SYX.MARK reached nobody: there is no driver SYX; did you mean SYS?")),
              errorOf([&] { send({}); }));
}

TEST_F(SendCommandTest, WhatGoesOnIsNotFinished) {
    m_host.answer("POST /fid", R"({"fid":"SYS.MARK","stage":"accepted"})", 202);
    auto remote = control();
    EXPECT_EQ(
        std::pair(EExit::NotFinished, std::string("SYS.MARK is not finished in time; it goes on")),
        errorOf([&] { SendCommand(remote).run("SYS.MARK", {}, "taken", std::chrono::milliseconds(1)); }));
}

TEST_F(SendCommandTest, JsonHasNothingElse) {
    m_host.answer("POST /fid", R"({"stage":"delivered"})");
    EXPECT_EQ(EExit::Done, send({}, true));
    EXPECT_EQ("{\"stage\":\"delivered\"}\n", out());
}
