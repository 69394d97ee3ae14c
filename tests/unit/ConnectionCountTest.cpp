#include "ConnectionCount.h"

#include <gtest/gtest.h>

namespace {

ConnectionCount::Holder user(unsigned uid) {
    return {.uid = uid, .name = "uid " + std::to_string(uid), .isFavoured = uid == 0};
}

ConnectionCount::Holder stranger(unsigned uid) {
    ConnectionCount::Holder holder = user(uid);
    holder.isRefused = true;
    return holder;
}

TEST(ConnectionCount, RootMayHaveAll) {
    const HttpLimits limits;
    ConnectionCount sut(limits);
    for (int i = 0; i < 64; ++i)
        EXPECT_EQ(sut.add(user(0)), "");
    EXPECT_EQ(sut.add(user(0)), "there are 64 connections open, and there may be no more");
    EXPECT_EQ(sut.add(user(1000)), "there are 64 connections open, and there may be no more");
}

TEST(ConnectionCount, OneUserMayHaveEight) {
    const HttpLimits limits;
    ConnectionCount sut(limits);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(sut.add(user(1000)), "");
    EXPECT_EQ(sut.add(user(1000)), "uid 1000 has 8 connections open, and may have no more");
    EXPECT_EQ(sut.add(user(1001)), "");
    sut.remove(user(1000));
    EXPECT_EQ(sut.add(user(1000)), "");
}

TEST(ConnectionCount, LastEightAreForRoot) {
    const HttpLimits limits;
    ConnectionCount sut(limits);
    for (unsigned uid = 1000; uid < 1007; ++uid) {
        for (int i = 0; i < 8; ++i)
            EXPECT_EQ(sut.add(user(uid)), "");
    }
    EXPECT_EQ(sut.add(user(1007)), "there are 56 connections open, and there may be no more");
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(sut.add(user(0)), "");
    EXPECT_NE(sut.add(user(0)), "");
}

TEST(ConnectionCount, UsersWithoutARoleHaveEightTogether) {
    const HttpLimits limits;
    ConnectionCount sut(limits);
    for (unsigned uid = 1000; uid < 1008; ++uid)
        EXPECT_EQ(sut.add(stranger(uid)), "");
    EXPECT_EQ(sut.add(stranger(1008)), "too many connections of users without a role are open");
    EXPECT_EQ(sut.add(user(1008)), "");
    sut.remove(stranger(1000));
    EXPECT_EQ(sut.add(stranger(1009)), "");
}

}  // namespace
