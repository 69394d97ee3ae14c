#include "QueueNames.h"

#include <gtest/gtest.h>

TEST(QueueNames, BeginWithTheDriver) {
    EXPECT_EQ(protocol::inputQueue("AXIS1"), "AXIS1_INQ");
    EXPECT_EQ(protocol::outputQueue("AXIS1"), "AXIS1_OUTQ");
}

TEST(QueueNames, TellTheReceiverOfAnInputQueueOnly) {
    EXPECT_EQ(protocol::receiverOf("AXIS1_INQ"), "AXIS1");
    EXPECT_EQ(protocol::receiverOf("AXIS1_OUTQ"), "");
    EXPECT_EQ(protocol::receiverOf("AXIS1"), "");
    EXPECT_EQ(protocol::receiverOf(""), "");
}

TEST(QueueNames, TellTheOwnerOfBoth) {
    EXPECT_EQ(protocol::ownerOf("AXIS1_INQ"), "AXIS1");
    EXPECT_EQ(protocol::ownerOf("AXIS1_OUTQ"), "AXIS1");
    EXPECT_EQ(protocol::ownerOf("AXIS1_inq"), "");
}

TEST(QueueNames, OwnerMayLookLikeAQueueItself) {
    EXPECT_EQ(protocol::ownerOf("A_INQ_OUTQ"), "A_INQ");
    EXPECT_EQ(protocol::receiverOf("A_OUTQ_INQ"), "A_OUTQ");
}
