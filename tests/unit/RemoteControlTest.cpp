#include "RemoteFixture.h"

namespace {
class RemoteControlTest : public RemoteFixture {};
}  // namespace

TEST_F(RemoteControlTest, ErrorHasItsTextAndTheNearestNames) {
    m_host.answer(
        "GET /drivers/AXSI1",
        R"({"error":{"code":"driver-unknown","text":"there is no driver AXSI1","nearest":["AXIS1"]}})", 404);
    auto sut = control();
    EXPECT_EQ(std::pair(EExit::Failed, std::string("there is no driver AXSI1; did you mean AXIS1?")),
              errorOf([&] { sut.ask("/drivers/AXSI1"); }));
    m_host.answer("GET /x", R"({"error":{"code":"driver-unknown","text":"no","nearest":["A","B","C"]}})",
                  404);
    EXPECT_EQ("no; did you mean A, B or C?", errorOf([&] { sut.ask("/x"); }).second);
}

TEST_F(RemoteControlTest, ExitCodeIsThatOfTheStatus) {
    auto sut = control();
    const auto exitOf = [&](unsigned status) {
        m_host.answer("GET /x", R"({"error":{"code":"c","text":"t","nearest":[]}})", status);
        return errorOf([&] { sut.ask("/x"); }).first;
    };
    EXPECT_EQ(EExit::WrongUsage, exitOf(400));
    EXPECT_EQ(EExit::NotAllowed, exitOf(403));
    EXPECT_EQ(EExit::Failed, exitOf(404));
    EXPECT_EQ(EExit::Failed, exitOf(409));
    EXPECT_EQ(EExit::Failed, exitOf(503));
    EXPECT_EQ(EExit::NotFinished, exitOf(202));
    EXPECT_EQ(EExit::Done, exitOf(200));
}

TEST_F(RemoteControlTest, ErrorWithoutATextSaysItsStatus) {
    m_host.answer("GET /x", "<html>", 502);
    auto sut = control();
    EXPECT_EQ("the host answers 502 and tells no reason", errorOf([&] { sut.ask("/x"); }).second);
}

TEST_F(RemoteControlTest, JsonIsPrintedAsItCame) {
    m_host.answer("GET /queues", R"({ "queues":[ ] })");
    auto sut = control(true);
    sut.ask("/queues");
    EXPECT_EQ("{ \"queues\":[ ] }\n", out());
}

TEST_F(RemoteControlTest, JsonOfAnErrorIsPrintedToo) {
    m_host.answer("GET /queues", R"({"error":{"code":"busy","text":"busy","nearest":[]}})", 503);
    auto sut = control(true);
    EXPECT_EQ(EExit::Failed, errorOf([&] { sut.ask("/queues"); }).first);
    EXPECT_EQ("{\"error\":{\"code\":\"busy\",\"text\":\"busy\",\"nearest\":[]}}\n", out());
}
