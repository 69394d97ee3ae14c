#include "HostSender.h"

#include <gtest/gtest.h>

#include "FIDParameterList.h"
#include "InterfaceIds.h"

namespace {

class Target : public IFunctionID {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        sent = fid + " " + parameters.value("x");
        return true;
    }
    bool subscribe(const std::string& fid) const override {
        subscribed = fid;
        return true;
    }
    bool showState() const override { return true; }

    mutable std::string sent;
    mutable std::string subscribed;
};

}  // namespace

TEST(HostSender, PassesTheWholeFidOn) {
    HostSender sut;
    Target target;
    sut.setTarget(&target);
    FIDParameterList parameters;
    parameters.add("x", "5");
    EXPECT_TRUE(sut.sendFID("AXIS1.MOVE", parameters));
    EXPECT_EQ("AXIS1.MOVE 5", target.sent);
    EXPECT_TRUE(sut.subscribe("AXIS1.DONE"));
    EXPECT_EQ("AXIS1.DONE", target.subscribed);
}

TEST(HostSender, SendsNothingWithoutAManager) {
    HostSender sut;
    EXPECT_FALSE(sut.sendFID("AXIS1.MOVE", {}));
    EXPECT_FALSE(sut.subscribe("AXIS1.MOVE"));
}

TEST(HostSender, AnswersFunctionIDOnly) {
    HostSender sut;
    EXPECT_NE(nullptr, dynamic_cast<IFunctionID*>(sut.queryInterface(IID_IFunctionID)));
    EXPECT_EQ(nullptr, sut.queryInterface(IID_IPanelState));
}
