#include "AnswerCounts.h"

#include <gtest/gtest.h>

TEST(AnswerCounts, EachStatusIsCountedByItself) {
    AnswerCounts sut;
    EXPECT_TRUE(sut.counts().empty());
    for (const unsigned status : {200u, 404u, 200u})
        sut.add(status);
    EXPECT_EQ((std::map<unsigned, std::uint64_t>{{200, 2}, {404, 1}}), sut.counts());
}
