#include "MDMConfigurationIPCI.h"

#include <gtest/gtest.h>

#include "StandardOutput.h"

TEST(MDMConfigurationIPCI, AnswersStatus) {
    MDMConfigurationIPCI sut;
    EXPECT_EQ(dynamic_cast<IMDMStatus*>(sut.queryInterface(1105)), static_cast<IMDMStatus*>(&sut));
}

TEST(MDMConfigurationIPCI, AnswersNoOtherIdentifier) {
    MDMConfigurationIPCI sut;
    for (unsigned int id : {0u, 1012u, 1100u, 1101u, 1102u, 1103u, 1104u, 1106u, 1107u, 1109u, 1201u})
        EXPECT_EQ(sut.queryInterface(id), nullptr) << id;
}

TEST(MDMConfigurationIPCI, StatusDoesNothing) {
    const MDMConfigurationIPCI sut;
    EXPECT_EQ(fakehost::printedBy([&] { sut.statusMfDriver(); }), "");
}
