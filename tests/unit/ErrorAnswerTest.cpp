#include "ErrorAnswer.h"

#include <gtest/gtest.h>

TEST(ErrorAnswer, IsJsonWithCodeAndText) {
    const ApiAnswer sut = errorAnswer(404, "not-found", "there is no \"x\"\x1b");
    EXPECT_EQ(sut.status, 404u);
    EXPECT_EQ(sut.contentType, "application/json");
    EXPECT_EQ(sut.body, R"({"error":{"code":"not-found","text":"there is no \"x\"\u001b"}})");
}
