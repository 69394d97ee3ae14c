#include <gtest/gtest.h>

#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "LoadedModule.h"

namespace {

constexpr const char* s_sysmonModule = MFD_DRIVER_DIR "/sysmon.so";

TEST(SysMonModule, SaysWhichAbiItWasBuiltWith) {
    EXPECT_EQ(LoadedModule(s_sysmonModule).abi(), 1u);
}

TEST(SysMonModule, MakesADriverWithBothInterfaces) {
    const LoadedModule sut(s_sysmonModule);
    const auto pDriver = sut.createDriver();
    EXPECT_NE(dynamic_cast<IFunctionID*>(pDriver->queryInterface(1100)), nullptr);
    EXPECT_NE(dynamic_cast<IMFDConfiguration*>(pDriver->queryInterface(1201)), nullptr);
}

TEST(SysMonModule, MakesSeveralDrivers) {
    const LoadedModule sut(s_sysmonModule);
    const auto pFirst = sut.createDriver();
    const auto pSecond = sut.createDriver();
    EXPECT_NE(pFirst, pSecond);
}

TEST(SysMonModule, LeavesNoCodeMappedBehind) {
    {
        const LoadedModule sut(s_sysmonModule);
        EXPECT_TRUE(LoadedModule::isMapped(s_sysmonModule));
        sut.createDriver().reset();
    }
    EXPECT_FALSE(LoadedModule::isMapped(s_sysmonModule));
}

}  // namespace
