#include "LinkTopics.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using EKind = LinkTopics::EKind;

TEST(LinkTopics, AreTheseToTheByte) {
    EXPECT_EQ(LinkTopics::up("SITE1"), "mf/1/SITE1/up");
    EXPECT_EQ(LinkTopics::tick("SITE1"), "mf/1/SITE1/tick");
    EXPECT_EQ(LinkTopics::state("SITE1", "AXIS1", "POSITION"), "mf/1/SITE1/state/AXIS1/POSITION");
    EXPECT_EQ(LinkTopics::event("SITE1", "AXIS1", "FAULT"), "mf/1/SITE1/event/AXIS1/FAULT");
    EXPECT_EQ(LinkTopics::fid("SITE1", "AXIS1", "MOVE"), "mf/1/SITE1/fid/AXIS1/MOVE");
    EXPECT_EQ(LinkTopics::reply("SITE1", "0a1b"), "mf/1/SITE1/reply/0a1b");
    EXPECT_EQ(LinkTopics::states("SITE1", "AXIS1"), "mf/1/SITE1/state/AXIS1/+");
    EXPECT_EQ(LinkTopics::states("SITE1", "*"), "mf/1/SITE1/state/+/+");
    EXPECT_EQ(LinkTopics::events("SITE1", "AXIS1"), "mf/1/SITE1/event/AXIS1/+");
    EXPECT_EQ(LinkTopics::fids("SITE1", "AXIS1"), "mf/1/SITE1/fid/AXIS1/+");
    EXPECT_EQ(LinkTopics::fids("SITE1", "*"), "mf/1/SITE1/fid/+/+");
    EXPECT_EQ(LinkTopics::replies("SITE1"), "mf/1/SITE1/reply/+");
    EXPECT_EQ(LinkTopics::tree("SITE/1"), "mf/1/SITE%2F1/#");
}

TEST(LinkTopics, StatesKeepTheirDotsAndOddNamesStayOneLevel) {
    EXPECT_EQ(LinkTopics::state("SITE 1", "A+B", "x.y/z#1%"), "mf/1/SITE 1/state/A%2BB/x.y%2Fz%231%25");
    EXPECT_EQ(LinkTopics::state("\xc3\xa4", "A\n", "\x7f"), "mf/1/\xc3\xa4/state/A%0A/%7F");
    EXPECT_EQ(LinkTopics::state("A", "B", "\xc3\xa4\xff"), "mf/1/A/state/B/%C3%A4%FF");
    EXPECT_EQ(LinkTopics::states("SITE1", "+"), "mf/1/SITE1/state/%2B/+");
}

TEST(LinkTopics, EveryLevelComesBack) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    EXPECT_EQ(LinkTopics::decoded(LinkTopics::encoded(all)), all);
    const LinkTopics::Parts parts{"SITE1", EKind::State, "AXIS1", all};
    EXPECT_EQ(LinkTopics::parse(LinkTopics::state("SITE1", "AXIS1", all)), parts);
}

TEST(LinkTopics, AreTakenApartAsTheyAreMade) {
    const auto parse = [](const std::string& topic) { return LinkTopics::parse(topic); };
    EXPECT_EQ(parse("mf/1/SITE1/up"), (LinkTopics::Parts{"SITE1", EKind::Up, "", ""}));
    EXPECT_EQ(parse("mf/1/SITE1/tick"), (LinkTopics::Parts{"SITE1", EKind::Tick, "", ""}));
    EXPECT_EQ(parse("mf/1/SITE1/event/AXIS1/A.B"),
              (LinkTopics::Parts{"SITE1", EKind::Event, "AXIS1", "A.B"}));
    EXPECT_EQ(parse("mf/1/SITE1/fid/A%2FB/MOVE"), (LinkTopics::Parts{"SITE1", EKind::Fid, "A/B", "MOVE"}));
    EXPECT_EQ(parse("mf/1/SITE1/reply/0a1b"), (LinkTopics::Parts{"SITE1", EKind::Reply, "0a1b", ""}));
}

TEST(LinkTopics, WhatNoneOfUsMakesIsNone) {
    for (const char* pTopic :
         {"", "mf/1/", "mf/1/SITE1", "mf/2/SITE1/up", "xmf/1/SITE1/up", "mf/1/SITE1/up/", "mf/1/SITE1/Up",
          "mf/1//up", "mf/1/SITE1/state/AXIS1", "mf/1/SITE1/state/AXIS1/", "mf/1/SITE1/state//POSITION",
          "mf/1/SITE1/state/AXIS1/POSITION/x", "mf/1/SITE1/reply", "mf/1/SITE1/fid/A%2/MOVE",
          "mf/1/SITE1/fid/A%/MOVE", "mf/1/SITE1/fid/A%2G/MOVE", "mf/1/SITE1/fid/+/MOVE"})
        EXPECT_FALSE(LinkTopics::parse(pTopic)) << pTopic;
    EXPECT_FALSE(LinkTopics::parse("mf/1/SITE1/state/A/" + std::string(70000, 'x')));
}

TEST(LinkTopics, OneNameHasOneTopic) {
    // "AXIS1" and "a%2Fb" written otherwise.
    EXPECT_FALSE(LinkTopics::decoded("AXIS%31"));
    EXPECT_FALSE(LinkTopics::decoded("a%2fb"));
    EXPECT_EQ(LinkTopics::decoded("a%2Fb"), "a/b");
}

}  // namespace
