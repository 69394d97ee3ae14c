#include "StreamKind.h"

#include <gtest/gtest.h>

using stream::EKind;
using stream::ERing;

TEST(StreamKind, OnlyValuesLieInTheirRing) {
    EXPECT_EQ(stream::ringOf(EKind::Text), ERing::Values);
    EXPECT_EQ(stream::ringOf(EKind::Unset), ERing::Values);
    for (const EKind kind :
         {EKind::None, EKind::Event, EKind::Fid, EKind::Exit, EKind::Log, EKind::Define, EKind::Gap})
        EXPECT_EQ(stream::ringOf(kind), ERing::Audit);
}

TEST(StreamKind, WhatEndsADriverIsNeverRationed) {
    for (const EKind kind : {EKind::Start, EKind::Exit, EKind::Hang, EKind::Restart, EKind::Stale,
                             EKind::Define, EKind::Counts, EKind::Merged, EKind::Configuration})
        EXPECT_FALSE(stream::isRationed(kind)) << stream::kindName(kind);
    for (const EKind kind : {EKind::Event, EKind::Fid, EKind::FidEnd, EKind::Command, EKind::CommandEnd,
                             EKind::Log, EKind::Output, EKind::Mark, EKind::Wire})
        EXPECT_TRUE(stream::isRationed(kind)) << stream::kindName(kind);
}

TEST(StreamKind, EachNameLeadsBackToItsKinds) {
    EXPECT_EQ(stream::kindsNamed("exit"), (std::vector{EKind::Exit}));
    EXPECT_EQ(stream::kindsNamed("value"),
              (std::vector{EKind::Text, EKind::Float, EKind::Int, EKind::Bool, EKind::Unset}));
    EXPECT_TRUE(stream::kindsNamed("exits").empty());
    EXPECT_TRUE(stream::kindsNamed("").empty());
}

TEST(StreamKind, WhatIsNoKindIsUnknown) {
    EXPECT_EQ(stream::kindName(static_cast<EKind>(200)), "unknown");
    EXPECT_EQ(stream::kindName(EKind::None), "unknown");
}

TEST(StreamKind, EachNameIsListedOnce) {
    EXPECT_EQ(stream::kindNames(),
              (std::vector<std::string_view>{"value",         "event", "fid",    "fid-end", "command",
                                             "command-end",   "start", "exit",   "hang",    "restart",
                                             "configuration", "log",   "output", "stale",   "merged",
                                             "mark",          "wire",  "define", "counts",  "gap"}));
}
