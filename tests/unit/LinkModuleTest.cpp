#include <gtest/gtest.h>

#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "LoadedModule.h"

namespace {

constexpr const char* s_linkModule = MFD_DRIVER_DIR "/link.so";

TEST(LinkModule, SaysWhichAbiItWasBuiltWith) {
    EXPECT_EQ(LoadedModule(s_linkModule).abi(), 1u);
}

TEST(LinkModule, MakesADriverWithBothInterfaces) {
    const LoadedModule sut(s_linkModule);
    const auto pDriver = sut.createDriver();
    EXPECT_NE(dynamic_cast<IFunctionID*>(pDriver->queryInterface(1100)), nullptr);
    EXPECT_NE(dynamic_cast<IMFDConfiguration*>(pDriver->queryInterface(1201)), nullptr);
}

}  // namespace
