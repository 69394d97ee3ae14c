#include "HeldUpText.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

namespace {

std::string textOf(const std::string& health) {
    const nlohmann::json json = nlohmann::json::parse(health);
    return heldUpText(JsonView(json));
}

}  // namespace

TEST(HeldUpText, NamesCommandAgeCallAndDriver) {
    EXPECT_EQ(
        "sendFID A.PING has been under way for 9 s, in sendFID(PING) of A",
        textOf(
            R"j({"command":{"what":"sendFID A.PING","driver":"A","operation":"sendFID(PING)","forMs":9000}})j"));
    EXPECT_EQ("plan has been under way for 4 s",
              textOf(R"({"command":{"what":"plan","driver":"","operation":"","forMs":4000}})"));
}

TEST(HeldUpText, IsEmptyWithoutACommand) {
    EXPECT_EQ("", textOf(R"({"command":null})"));
    EXPECT_EQ("", textOf("{}"));
}
