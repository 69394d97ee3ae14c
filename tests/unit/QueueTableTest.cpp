#include "QueueTable.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

const nlohmann::json s_queues = nlohmann::json::parse(
    R"([{"name":"SYS_INQ","depth":0,"capacity":64,"highWater":2,"messages":10,"bytes":100,"waits":0,
         "waitingForMs":0,"holders":2,"receiver":true},
        {"name":"LAMP_INQ","depth":64,"capacity":64,"highWater":64,"messages":99,"bytes":9,"waits":5,
         "waitingForMs":1500,"holders":1,"receiver":false}])");

std::string shown(const base::Table::Look& look) {
    std::ostringstream out;
    printQueues(JsonView(s_queues).list(), Screen{out, out, look});
    return out.str();
}

}  // namespace

TEST(QueueTable, ShowsWhatWaitsInYellow) {
    EXPECT_EQ(
        "queue     depth  capacity  highest  messages  bytes  waits  waiting  holders  receiver\n"
        "SYS_INQ   0      64        2        10        100    0      -        2        yes\n"
        "LAMP_INQ  64     64        64       99        9      5      \x1b[33m1500 ms\x1b[0m  1        no\n",
        shown({0, true}));
}

TEST(QueueTable, LeavesColumnsOutWhereTheTerminalIsTooNarrowForAll) {
    EXPECT_EQ(
        "queue     depth  capacity  highest  messages  waiting  receiver\n"
        "SYS_INQ   0      64        2        10        -        yes\n"
        "LAMP_INQ  64     64        64       99        1500 ms  no\n",
        shown({80, false}));
    EXPECT_NE(std::string::npos, shown({86, false}).find("holders"));
}
