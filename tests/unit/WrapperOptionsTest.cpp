#include "WrapperOptions.h"

#include <gmock/gmock.h>

#include <map>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

WrapperOptions parse(const std::vector<std::string>& arguments,
                     const std::map<std::string, std::string>& variables = {}) {
    return WrapperOptions::parse(arguments, [&](const char* name) -> const char* {
        const auto found = variables.find(name);
        return found == variables.end() ? nullptr : found->second.c_str();
    });
}

TEST(WrapperOptions, TakesModuleAndDriverId) {
    const WrapperOptions sut = parse({"/opt/axis.so", "AXIS1"});
    EXPECT_TRUE(sut.usable);
    EXPECT_EQ(sut.modulePath, "/opt/axis.so");
    EXPECT_EQ(sut.driverID, "AXIS1");
}

TEST(WrapperOptions, OtherNumbersOfArgumentsAreWrong) {
    EXPECT_FALSE(parse({}).usable);
    EXPECT_FALSE(parse({"/opt/axis.so"}).usable);
    EXPECT_FALSE(parse({"/opt/axis.so", "AXIS1", "more"}).usable);
}

TEST(WrapperOptions, EmptyArgumentsAreWrong) {
    EXPECT_FALSE(parse({"", "AXIS1"}).usable);
    EXPECT_FALSE(parse({"/opt/axis.so", ""}).usable);
}

TEST(WrapperOptions, TakesTheNumberOfDescriptors) {
    EXPECT_EQ(parse({"m", "A"}, {{"MFD_DESCRIPTORS", "1024"}}).descriptors, 1024u);
    const WrapperOptions sut = parse({"m", "A"}, {{"MFD_DESCRIPTORS", "-1"}});
    EXPECT_EQ(sut.descriptors, 0u);
    EXPECT_EQ(sut.complaints.size(), 1u);
}

TEST(WrapperOptions, DefaultsWithoutVariables) {
    const WrapperOptions sut = parse({"m", "A"});
    EXPECT_EQ(sut.descriptors, 0u);
    EXPECT_EQ(sut.logLevel, 4);
    EXPECT_EQ(sut.stopTimeout.count(), 3000);
    EXPECT_THAT(sut.complaints, IsEmpty());
}

TEST(WrapperOptions, TakesVariables) {
    const WrapperOptions sut = parse({"m", "A"}, {{"MFD_LOG_LEVEL", "5"}, {"MFD_STOP_TIMEOUT", "10"}});
    EXPECT_EQ(sut.logLevel, 5);
    EXPECT_EQ(sut.stopTimeout.count(), 10000);
}

TEST(WrapperOptions, EmptyVariableIsAsNotSet) {
    EXPECT_THAT(parse({"m", "A"}, {{"MFD_LOG_LEVEL", ""}}).complaints, IsEmpty());
}

TEST(WrapperOptions, StopTimeoutMayHaveAFraction) {
    EXPECT_EQ(parse({"m", "A"}, {}).debuggerPatience.count(), 0);
    EXPECT_EQ(parse({"m", "A"}, {{"MFD_WAIT_FOR_DEBUGGER", "5"}}).debuggerPatience.count(), 5);
    EXPECT_EQ(parse({"m", "A"}, {{"MFD_STOP_TIMEOUT", "0.25"}}).stopTimeout.count(), 250);
}

TEST(WrapperOptions, StopTimeoutThatIsNoNumberIsNamed) {
    EXPECT_THAT(parse({"m", "A"}, {{"MFD_STOP_TIMEOUT", "nan"}}).complaints,
                ElementsAre("MFD_STOP_TIMEOUT=nan is not a number from 0 to 86400; 3 is used"));
}

TEST(WrapperOptions, LevelOutOfRangeIsNamed) {
    const WrapperOptions sut = parse({"m", "A"}, {{"MFD_LOG_LEVEL", "6"}});
    EXPECT_EQ(sut.logLevel, 4);
    EXPECT_THAT(sut.complaints, ElementsAre("MFD_LOG_LEVEL=6 is not a number from 1 to 5; 4 is used"));
}

TEST(WrapperOptions, TextBehindANumberIsNoNumber) {
    const WrapperOptions sut = parse({"m", "A"}, {{"MFD_STOP_TIMEOUT", "3s"}});
    EXPECT_EQ(sut.stopTimeout.count(), 3000);
    EXPECT_THAT(sut.complaints,
                ElementsAre("MFD_STOP_TIMEOUT=3s is not a number from 0 to 86400; 3 is used"));
}

}  // namespace
