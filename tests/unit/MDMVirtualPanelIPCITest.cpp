#include "MDMVirtualPanelIPCI.h"

#include <gtest/gtest.h>

#include <iostream>

#include "FIDParameterList.h"
#include "FakeHost.h"
#include "FlushedOutput.h"
#include "RecordingDistributorFID.h"
#include "StandardOutput.h"

namespace {

std::string printedBy(const std::function<void(MDMVirtualPanelIPCI&)>& action) {
    MDMVirtualPanelIPCI sut;
    return fakehost::printedBy([&] { action(sut); });
}

}  // namespace

TEST(MDMVirtualPanelIPCI, StringIsReportedAsItIs) {
    EXPECT_EQ(printedBy([](auto& sut) { sut.setStateValue("AXIS1.MODE", "jog  fast"); }),
              "MDMVirtualPanelIPCI: sends => AXIS1.MODE   state => jog  fast\n\n");
}

TEST(MDMVirtualPanelIPCI, IntIsReportedInDecimal) {
    EXPECT_EQ(printedBy([](auto& sut) { sut.setStateValueInt("PANEL.LAMP", 3); }),
              "MDMVirtualPanelIPCI: sends => PANEL.LAMP   state => 3\n\n");
}

TEST(MDMVirtualPanelIPCI, FloatIsReportedInGeneralNotation) {
    EXPECT_EQ(printedBy([](auto& sut) {
                  sut.setStateValueFloat("X", 1.5F);
                  sut.setStateValueFloat("X", 0.1F);
                  sut.setStateValueFloat("X", 1000000.0F);
              }),
              "MDMVirtualPanelIPCI: sends => X   state => 1.5\n\n"
              "MDMVirtualPanelIPCI: sends => X   state => 0.1\n\n"
              "MDMVirtualPanelIPCI: sends => X   state => 1e+06\n\n");
}

TEST(MDMVirtualPanelIPCI, BoolIsReportedAsANumber) {
    EXPECT_EQ(printedBy([](auto& sut) {
                  sut.setStateValueBool("X", true);
                  sut.setStateValueBool("X", false);
              }),
              "MDMVirtualPanelIPCI: sends => X   state => 1\n\n"
              "MDMVirtualPanelIPCI: sends => X   state => 0\n\n");
}

TEST(MDMVirtualPanelIPCI, UnsetIsReportedAsInvalid) {
    EXPECT_EQ(printedBy([](auto& sut) { sut.unsetStateValue("PANEL.LAMP"); }),
              "MDMVirtualPanelIPCI: sends => PANEL.LAMP   state => INVALID\n\n");
}

TEST(MDMVirtualPanelIPCI, UnsetOfTheEmptyIDIsReportedWithoutAKey) {
    EXPECT_EQ(printedBy([](auto& sut) { sut.unsetStateValue(""); }),
              "MDMVirtualPanelIPCI: sends =>    state => INVALID\n\n");
}

TEST(MDMVirtualPanelIPCI, EventIsReportedWithItsValue) {
    EXPECT_EQ(printedBy([](auto& sut) { sut.triggerEvent("PANEL.ALARM", "hot"); }),
              "MDMVirtualPanelIPCI: triggers => PANEL.ALARM   value => hot\n\n");
}

TEST(MDMVirtualPanelIPCI, EveryReportIsFlushed) {
    MDMVirtualPanelIPCI sut;
    fakehost::StandardOutput output;
    sut.triggerEvent("A", "1");
    const std::string flushed = output.flushed();
    EXPECT_EQ(flushed, "MDMVirtualPanelIPCI: triggers => A   value => 1\n\n");
}

TEST(MDMVirtualPanelIPCI, BothLineEndsOfEachReportFlush) {
    MDMVirtualPanelIPCI sut;
    FlushedOutput output;
    sut.setStateValue("A", "1");
    sut.setStateValueFloat("B", 2.5F);
    sut.setStateValueInt("C", 3);
    sut.setStateValueBool("D", true);
    sut.unsetStateValue("E");
    sut.triggerEvent("F", "6");
    EXPECT_EQ(output.pieces,
              (std::vector<std::string>{"MDMVirtualPanelIPCI: sends => A   state => 1\n", "\n",
                                        "MDMVirtualPanelIPCI: sends => B   state => 2.5\n", "\n",
                                        "MDMVirtualPanelIPCI: sends => C   state => 3\n", "\n",
                                        "MDMVirtualPanelIPCI: sends => D   state => 1\n", "\n",
                                        "MDMVirtualPanelIPCI: sends => E   state => INVALID\n", "\n",
                                        "MDMVirtualPanelIPCI: triggers => F   value => 6\n", "\n"}));
}

TEST(MDMVirtualPanelIPCI, FloatHasSixSignificantDigits) {
    EXPECT_EQ(printedBy([](auto& sut) {
                  sut.setStateValueFloat("X", 0.123456789F);
                  sut.setStateValueFloat("X", -1234567.0F);
              }),
              "MDMVirtualPanelIPCI: sends => X   state => 0.123457\n\n"
              "MDMVirtualPanelIPCI: sends => X   state => -1.23457e+06\n\n");
}

TEST(MDMVirtualPanelIPCI, NegativeIntKeepsItsSign) {
    EXPECT_EQ(printedBy([](auto& sut) { sut.setStateValueInt("X", -2147483647 - 1); }),
              "MDMVirtualPanelIPCI: sends => X   state => -2147483648\n\n");
}

TEST(MDMVirtualPanelIPCI, ReportsLeaveTheStreamsSettingsAlone) {
    const std::ios_base::fmtflags flags = std::cout.flags();
    const std::streamsize precision = std::cout.precision();
    printedBy([](auto& sut) {
        sut.setStateValueBool("X", true);
        sut.setStateValueFloat("X", 0.1F);
    });
    EXPECT_EQ(std::cout.flags(), flags);
    EXPECT_EQ(std::cout.precision(), precision);
}

TEST(MDMVirtualPanelIPCI, ShowStateDoesNothing) {
    EXPECT_EQ(printedBy([](auto& sut) { sut.showState(); }), "");
}

TEST(MDMVirtualPanelIPCI, TestFidIsDispatched) {
    fakehost::FakeHost host;
    RecordingDistributorFID distributor;
    MDMVirtualPanelIPCI sut;
    sut.setDistributorFIDInterface(&distributor);
    FIDParameterList parameters;
    parameters.add("a", "5");
    sut.sendTestFID("AXIS1.MOVE", parameters);
    EXPECT_EQ(host.journal().lines(), std::vector<std::string>{"distributor dispatchFID AXIS1.MOVE {a=5}"});
}

TEST(MDMVirtualPanelIPCI, TestFidWithoutADistributorDoesNothing) {
    EXPECT_EQ(printedBy([](auto& sut) { sut.sendTestFID("AXIS1.MOVE", FIDParameterList()); }), "");
}

TEST(MDMVirtualPanelIPCI, AnswersPanelState) {
    MDMVirtualPanelIPCI sut;
    EXPECT_EQ(dynamic_cast<IPanelState*>(sut.queryInterface(1101)), static_cast<IPanelState*>(&sut));
}

TEST(MDMVirtualPanelIPCI, AnswersNoOtherIdentifier) {
    MDMVirtualPanelIPCI sut;
    for (unsigned int id : {0u, 1012u, 1100u, 1102u, 1103u, 1104u, 1105u, 1106u, 1107u, 1109u, 1201u})
        EXPECT_EQ(sut.queryInterface(id), nullptr) << id;
}
