#include "SecretNames.h"

#include <gtest/gtest.h>

namespace {

SecretNames secrets(std::initializer_list<const char*> patterns) {
    SecretNames names;
    for (const char* pattern : patterns)
        EXPECT_TRUE(names.add(pattern)) << pattern;
    return names;
}

std::string inLine(const SecretNames& sut, const std::string& line) {
    std::string room;
    return std::string(sut.inLine(line, room));
}

}  // namespace

TEST(SecretNames, AreOfEveryFidWithoutOne) {
    const SecretNames sut = secrets({"password"});
    EXPECT_TRUE(sut.has("CAM1.LOGIN", "password"));
    EXPECT_FALSE(sut.has("CAM1.LOGIN", "user"));
    EXPECT_FALSE(sut.has("CAM1.LOGIN", "passwords"));
}

TEST(SecretNames, MayBeOfSomeFids) {
    const SecretNames sut = secrets({"CAM*.LOGIN:p*", "LAMP.PAIR:code"});
    EXPECT_TRUE(sut.has("CAM1.LOGIN", "pin"));
    EXPECT_FALSE(sut.has("CAM1.MOVE", "pin"));
    EXPECT_TRUE(sut.has("LAMP.PAIR", "code"));
    EXPECT_FALSE(sut.has("CAM1.LOGIN", "code"));
}

TEST(SecretNames, NameAParameter) {
    SecretNames sut;
    EXPECT_FALSE(sut.add(""));
    EXPECT_FALSE(sut.add("CAM1.LOGIN:"));
    EXPECT_FALSE(sut.add(":password"));
    EXPECT_TRUE(sut.empty());
}

TEST(SecretNames, AreTakenOutOfACommandWordByWord) {
    const SecretNames sut = secrets({"CAM1.LOGIN:password"});
    EXPECT_EQ("sendFID CAM1.LOGIN user=anna password=*** room=2",
              sut.inCommand("sendFID  CAM1.LOGIN user=anna \"password=a b\" room=2"));
    EXPECT_EQ("sendFID CAM1.LOGIN 'user=an na' password=***",
              sut.inCommand("sendFID CAM1.LOGIN 'user=an na' password="));
    EXPECT_EQ("sendFID  CAM1.LOGIN  user=anna", sut.inCommand("sendFID  CAM1.LOGIN  user=anna"));
}

TEST(SecretNames, AreTakenOutOfALineThatIsNoWords) {
    const SecretNames sut = secrets({"password"});
    EXPECT_EQ("sendFID CAM1.LOGIN 'password=***", sut.inCommand("sendFID CAM1.LOGIN 'password=open"));
    EXPECT_EQ("MDM: CAM1.LOGIN ( user=anna, password=***",
              inLine(sut, "MDM: CAM1.LOGIN ( user=anna, password=a b ) received."));
    EXPECT_EQ("a=b passwords=c =d", inLine(sut, "a=b passwords=c =d"));
}

TEST(SecretNames, WithoutOnesLeaveLinesAsTheyAre) {
    const SecretNames sut;
    EXPECT_EQ("sendFID  A.B password=x", sut.inCommand("sendFID  A.B password=x"));
    EXPECT_EQ("password=x", inLine(sut, "password=x"));
}
