#include "StreamCursor.h"

#include <gtest/gtest.h>

#include <string>

using stream::ERing;
using stream::StreamCursor;

namespace {

StreamCursor parsed(const std::string& text) {
    std::string error;
    const auto cursor = StreamCursor::parse(text, error);
    EXPECT_TRUE(cursor.has_value()) << error;
    return cursor.value_or(StreamCursor());
}

}  // namespace

TEST(StreamCursor, EachTextComesBack) {
    for (const std::string text : {"0a1b:both:4711", "i-1:values:65536", "i:audit:96", "oldest", "newest",
                                   "oldest:audit", "newest:values"})
        EXPECT_EQ(parsed(text).text(), text);
}

TEST(StreamCursor, NamesInstanceRingAndPosition) {
    const StreamCursor cursor = parsed("0a1b:audit:4711");
    EXPECT_EQ(cursor.place, StreamCursor::EPlace::Exact);
    EXPECT_EQ(cursor.instance, "0a1b");
    EXPECT_EQ(cursor.ring, ERing::Audit);
    EXPECT_EQ(cursor.position, 4711u);
    EXPECT_FALSE(parsed("0a1b:both:1").ring.has_value());
}

TEST(StreamCursor, WhatIsNoneIsRefusedWithWhatWouldBe) {
    for (const std::string text : {"", ":", "a:both", "a:both:", "a:both:x", "a:both:1x", "a:both:-1",
                                   "a:left:1", ":both:1", "a:both:99999999999999999999", "oldest:left",
                                   "oldest:", "a2345678901234567890123456789012x:both:1"}) {
        std::string error;
        EXPECT_FALSE(StreamCursor::parse(text, error).has_value()) << text;
        EXPECT_EQ(error,
                  '"' + text +
                      "\" is no place in a stream: that is INSTANCE:RING:POSITION as an answer gave it, with "
                      "both, values or audit for RING, or oldest, or newest");
    }
}
