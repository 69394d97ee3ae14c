#include <gtest/gtest.h>

#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "LoadedModule.h"

namespace {

constexpr const char* s_path = MFD_DRIVER_DIR "/link.so";

TEST(LinkModule, SaysWhichAbiItWasBuiltWith) {
    EXPECT_EQ(LoadedModule(s_path).abi(), 1u);
}

TEST(LinkModule, MakesADriverWithBothInterfaces) {
    const LoadedModule sut(s_path);
    const auto pDriver = sut.createDriver();
    EXPECT_NE(dynamic_cast<IFunctionID*>(pDriver->queryInterface(1100)), nullptr);
    EXPECT_NE(dynamic_cast<IMFDConfiguration*>(pDriver->queryInterface(1201)), nullptr);
}

}  // namespace
