#include "SessionList.h"

#include <gtest/gtest.h>

namespace {

TEST(SessionList, ShowsWhoIsThereAndHowMuchTheyAsked) {
    const auto now = std::chrono::system_clock::now();
    SessionList sut;
    sut.add({.role = ERole::View, .name = "anna", .uid = 1000, .pid = 17, .session = 4}, now);
    sut.add({.role = ERole::Admin, .name = "root", .uid = 0, .pid = 18, .session = 5}, now);
    sut.countRequest(4);
    sut.countRequest(4);
    const auto all = sut.sessions();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].id, 4u);
    EXPECT_EQ(all[0].user, "anna");
    EXPECT_EQ(all[0].uid, 1000u);
    EXPECT_EQ(all[0].pid, 17);
    EXPECT_EQ(all[0].role, ERole::View);
    EXPECT_EQ(all[0].since, now);
    EXPECT_EQ(all[0].requests, 2u);
    EXPECT_EQ(all[1].user, "root");
    EXPECT_EQ(all[1].requests, 0u);
}

TEST(SessionList, ForgetsWhoIsGone) {
    SessionList sut;
    sut.add({.role = ERole::View, .name = "anna", .uid = 1000, .pid = 17, .session = 4}, {});
    sut.remove(4);
    sut.countRequest(4);
    EXPECT_TRUE(sut.sessions().empty());
}

}  // namespace
