#include <gtest/gtest.h>

#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "IMacroSystem.h"
#include "LoadedModule.h"

namespace {

constexpr const char* s_panelModule = MFD_DRIVER_DIR "/panel.so";

TEST(PanelModule, SaysWhichAbiItWasBuiltWith) {
    EXPECT_EQ(LoadedModule(s_panelModule).abi(), 1u);
}

TEST(PanelModule, MakesADriverWithBothInterfaces) {
    const LoadedModule sut(s_panelModule);
    const auto pDriver = sut.createDriver();
    EXPECT_NE(dynamic_cast<IFunctionID*>(pDriver->queryInterface(1100)), nullptr);
    EXPECT_NE(dynamic_cast<IMFDConfiguration*>(pDriver->queryInterface(1201)), nullptr);
}

TEST(PanelModule, MakesAMacroSystem) {
    const LoadedModule sut(s_panelModule);
    const auto pDriver = sut.createDriver();
    EXPECT_NE(dynamic_cast<IMacroSystem*>(pDriver->queryInterface(1107)), nullptr);
}

TEST(PanelModule, LeavesNoCodeMappedBehind) {
    {
        const LoadedModule sut(s_panelModule);
        EXPECT_TRUE(LoadedModule::isMapped(s_panelModule));
        sut.createDriver().reset();
    }
    EXPECT_FALSE(LoadedModule::isMapped(s_panelModule));
}

}  // namespace
