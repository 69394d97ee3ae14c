#include "sal/CmdRegisterImpl.h"

#include <gtest/gtest.h>

namespace {

class Axis {
public:
    bool move(sal::CmdParameters& parameters) {
        m_moved = parameters.argument(0);
        return m_moved == "fast";
    }
    std::string m_moved;
};

TEST(CmdRegisterImpl, CallsTheHandlerOnTheObject) {
    Axis axis;
    sal::CmdRegisterImpl<Axis> sut("move", "", &axis, &Axis::move);
    sal::CmdParameters parameters({"slow"});
    sut.call(parameters);
    EXPECT_EQ(axis.m_moved, "slow");
}

TEST(CmdRegisterImpl, GivesTheHandlersResult) {
    Axis axis;
    sal::CmdRegisterImpl<Axis> sut("move", "", &axis, &Axis::move);
    sal::CmdParameters slow({"slow"});
    EXPECT_FALSE(sut.call(slow));
    sal::CmdParameters fast({"fast"});
    EXPECT_TRUE(sut.call(fast));
}

}  // namespace
