#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "LoadedModule.h"

namespace {

constexpr const char* s_faultyModule = MFD_FAULTY_MODULE;

TEST(FaultyModule, SaysWhichAbiItWasBuiltWith) {
    EXPECT_EQ(LoadedModule(s_faultyModule).abi(), 1u);
}

TEST(FaultyModule, MakesADriverWithBothInterfaces) {
    const LoadedModule sut(s_faultyModule);
    const auto pDriver = sut.createDriver();
    EXPECT_NE(dynamic_cast<IFunctionID*>(pDriver->queryInterface(1100)), nullptr);
    EXPECT_NE(dynamic_cast<IMFDConfiguration*>(pDriver->queryInterface(1201)), nullptr);
}

TEST(FaultyModule, ThrowsOutOfTheModuleAsPlanned) {
    const LoadedModule sut(s_faultyModule);
    ::setenv("MFD_FAULTS", "load throw", 1);
    EXPECT_THROW(sut.createDriver(), std::runtime_error);
    ::unsetenv("MFD_FAULTS");
}

TEST(FaultyModule, LeavesNoCodeMappedBehind) {
    {
        const LoadedModule sut(s_faultyModule);
        EXPECT_TRUE(LoadedModule::isMapped(s_faultyModule));
        sut.createDriver().reset();
    }
    EXPECT_FALSE(LoadedModule::isMapped(s_faultyModule));
}

}  // namespace
