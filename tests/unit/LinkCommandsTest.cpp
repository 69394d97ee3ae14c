#include "LinkCommands.h"

#include "RemoteFixture.h"

namespace {
class LinkCommandsTest : public RemoteFixture {};
}  // namespace

TEST_F(LinkCommandsTest, ListsEachLinkWithItsStateAndFigures) {
    m_host.answer("GET /links", R"({"links":[
        {"driver":"SITE2","site":"SITE1","to":"SITE2","broker":"127.0.0.1 port 1883","up":true,"cause":"",
         "forMs":61000,"delayMs":1.46,"inPerSecond":10,"outPerSecond":0.5,
         "error":{"text":"E.X: refused","ageMs":7000}},
        {"driver":"SITE3","site":"SITE1","to":"SITE3","broker":"127.0.0.1 port 1883","up":false,
         "cause":"SITE3 is\\n away","forMs":5000,"delayMs":null,"inPerSecond":null,"outPerSecond":null,
         "error":null},
        {"driver":"SITE4","site":"","to":"","broker":"","up":false,"cause":"not loaded","forMs":null,
         "delayMs":null,"inPerSecond":null,"outPerSecond":null,"error":null}]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, LinkCommands(remote).list());
    EXPECT_EQ(
        "link   site   to     broker               state            for   delay   msg/s in/out  last error\n"
        "SITE2  SITE1  SITE2  127.0.0.1 port 1883  up               61 s  1.5 ms  10.0/0.5      E.X: "
        "refused "
        "(7 s ago)\n"
        "SITE3  SITE1  SITE3  127.0.0.1 port 1883  SITE3 is\\n away  5 s   -       -             -\n"
        "SITE4  -      -      -                    not loaded       -     -       -             -\n",
        out());
}

TEST_F(LinkCommandsTest, HostWithoutLinksSaysSo) {
    m_host.answer("GET /links", R"({"links":[]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, LinkCommands(remote).list());
    EXPECT_EQ("no links\n", out());
}

TEST_F(LinkCommandsTest, AsJsonTheAnswerIsPrintedAsItCame) {
    m_host.answer("GET /links", R"({"links":[]})");
    auto remote = control(true);
    EXPECT_EQ(EExit::Done, LinkCommands(remote).list());
    EXPECT_EQ("{\"links\":[]}\n", out());
}
