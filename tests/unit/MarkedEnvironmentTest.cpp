#include "MarkedEnvironment.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

std::vector<std::string> entriesOf(const sal::MarkedEnvironment& environment) {
    std::vector<std::string> entries;
    for (char* const* pEntry = environment.get(); *pEntry; ++pEntry)
        entries.emplace_back(*pEntry);
    return entries;
}

TEST(MarkedEnvironment, BeginsWithItsMark) {
    const sal::MarkedEnvironment sut;
    EXPECT_TRUE(sut.mark().starts_with("MFD_PROCESS=")) << sut.mark();
    EXPECT_EQ(entriesOf(sut).front(), sut.mark());
}

TEST(MarkedEnvironment, HoldsWhatThisProcessHasAndTheFurtherEntries) {
    ::setenv("MFD_TEST_VALUE", "passed on", 1);
    const sal::MarkedEnvironment sut({"MFD_TEST_FURTHER=1"});
    ::unsetenv("MFD_TEST_VALUE");
    const auto entries = entriesOf(sut);
    EXPECT_EQ(std::count(entries.begin(), entries.end(), "MFD_TEST_VALUE=passed on"), 1);
    EXPECT_EQ(std::count(entries.begin(), entries.end(), "MFD_TEST_FURTHER=1"), 1);
}

TEST(MarkedEnvironment, NoTwoAreMarkedAlike) {
    const sal::MarkedEnvironment first;
    const sal::MarkedEnvironment second;
    EXPECT_NE(first.mark(), second.mark());
}

TEST(MarkedEnvironment, ChildrenOfThisProcessAreMarkedAlikeAtTheBeginning) {
    const sal::MarkedEnvironment sut;
    EXPECT_TRUE(sut.mark().starts_with(sal::MarkedEnvironment::beginOfChildren()));
    EXPECT_TRUE(sal::MarkedEnvironment::beginOfChildren().starts_with("MFD_PROCESS="));
    EXPECT_GT(sal::MarkedEnvironment::beginOfChildren().size(), std::string("MFD_PROCESS=1-").size());
}

TEST(MarkedEnvironment, MarkOfThisProcessIsNotHandedOn) {
    ::setenv("MFD_PROCESS", "outer", 1);
    EXPECT_EQ(sal::MarkedEnvironment::ownMark(), "MFD_PROCESS=outer");
    const sal::MarkedEnvironment sut;
    ::unsetenv("MFD_PROCESS");
    const auto entries = entriesOf(sut);
    EXPECT_EQ(std::count_if(entries.begin(), entries.end(),
                            [](const std::string& entry) { return entry.starts_with("MFD_PROCESS="); }),
              1);
    EXPECT_NE(sut.mark(), "MFD_PROCESS=outer");
    EXPECT_EQ(sal::MarkedEnvironment::ownMark(), "");
}

}  // namespace
