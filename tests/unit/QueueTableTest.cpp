#include "QueueTable.h"

#include <gtest/gtest.h>

#include <sstream>

TEST(QueueTable, ShowsWhatWaitsInYellow) {
    const nlohmann::json queues = nlohmann::json::parse(
        R"([{"name":"SYS_INQ","depth":0,"capacity":64,"highWater":2,"messages":10,"bytes":100,"waits":0,
             "waitingForMs":0,"holders":2,"receiver":true},
            {"name":"LAMP_INQ","depth":64,"capacity":64,"highWater":64,"messages":99,"bytes":9,"waits":5,
             "waitingForMs":1500,"holders":1,"receiver":false}])");
    std::ostringstream out;
    printQueues(JsonView(queues).list(), Screen{out, out, {0, true}});
    EXPECT_EQ(
        "queue     depth  capacity  highest  messages  bytes  waits  waiting  holders  receiver\n"
        "SYS_INQ   0      64        2        10        100    0      -        2        yes\n"
        "LAMP_INQ  64     64        64       99        9      5      \x1b[33m1500 ms\x1b[0m  1        no\n",
        out.str());
}
