#include "MDMConfigDistributor.h"

#include <gtest/gtest.h>

#include "StandardOutput.h"

TEST(MDMConfigDistributor, AnswersBothIdentifiersWithTheSameInterface) {
    MDMConfigDistributor sut;
    ASSERT_NE(sut.queryInterface(1102), nullptr);
    EXPECT_EQ(sut.queryInterface(1102), sut.queryInterface(1103));
}

TEST(MDMConfigDistributor, CastPicksTheInterfaceThatWasAskedFor) {
    MDMConfigDistributor sut;
    EXPECT_EQ(dynamic_cast<IMfDriverConfig*>(sut.queryInterface(1102)), static_cast<IMfDriverConfig*>(&sut));
    EXPECT_EQ(dynamic_cast<IConfigState*>(sut.queryInterface(1103)), static_cast<IConfigState*>(&sut));
}

TEST(MDMConfigDistributor, AnswersNoOtherIdentifier) {
    MDMConfigDistributor sut;
    for (unsigned int id : {0u, 1012u, 1100u, 1101u, 1104u, 1105u, 1106u, 1107u, 1108u, 1109u, 1201u})
        EXPECT_EQ(sut.queryInterface(id), nullptr) << id;
}

TEST(MDMConfigDistributor, OperationsDoNothing) {
    const MDMConfigDistributor sut;
    EXPECT_EQ(fakehost::printedBy([&] {
                  sut.assignModule();
                  sut.setGlobalColor();
              }),
              "");
}
