#include "sal/CmdRegister.h"

#include <gtest/gtest.h>

namespace {

class MoveCommand : public sal::CmdRegister {
public:
    using CmdRegister::CmdRegister;
    bool call(sal::CmdParameters&) override { return true; }
};

TEST(CmdRegister, KeepsTheWord) {
    EXPECT_EQ(MoveCommand("move", "move <axis>").name(), "move");
}

TEST(CmdRegister, HelpIsNotCopied) {
    const char help[] = "move <axis>";
    EXPECT_EQ(MoveCommand("move", help).help(), static_cast<const char*>(help));
}

}  // namespace
