#include <dlfcn.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "IMacroSystem.h"
#include "InterfaceIds.h"
#include "sal/DriverModule.h"

namespace {

/// The driver modules as a loader meets them.
class DriverModulesTest : public testing::TestWithParam<const char*> {
protected:
    std::string path() const { return std::string(MFD_DRIVER_DIR "/") + GetParam(); }

    void* open() const {
        void* pHandle = ::dlopen(path().c_str(), RTLD_NOW | RTLD_LOCAL);
        EXPECT_NE(pHandle, nullptr) << ::dlerror();
        return pHandle;
    }

    static std::unique_ptr<IInterface> create(void* pHandle) {
        auto* pFactory = reinterpret_cast<IInterface* (*)()>(::dlsym(pHandle, MFD_DRIVER_FACTORY_SYMBOL));
        EXPECT_NE(pFactory, nullptr);
        return std::unique_ptr<IInterface>(pFactory ? pFactory() : nullptr);
    }
};

TEST_P(DriverModulesTest, SaysWhichAbiItWasBuiltWith) {
    void* pHandle = open();
    const auto* pAbi = static_cast<const unsigned int*>(::dlsym(pHandle, "mfdDriverAbi"));
    ASSERT_NE(pAbi, nullptr);
    EXPECT_EQ(*pAbi, 1u);
    ::dlclose(pHandle);
}

TEST_P(DriverModulesTest, MakesADriverWithBothInterfaces) {
    void* pHandle = open();
    auto pDriver = create(pHandle);
    ASSERT_NE(pDriver, nullptr);
    EXPECT_NE(dynamic_cast<IFunctionID*>(pDriver->queryInterface(1100)), nullptr);
    EXPECT_NE(dynamic_cast<IMFDConfiguration*>(pDriver->queryInterface(1201)), nullptr);
    pDriver.reset();
    ::dlclose(pHandle);
}

TEST_P(DriverModulesTest, LeavesNoCodeMappedBehind) {
    void* pHandle = open();
    create(pHandle).reset();
    ::dlclose(pHandle);
    EXPECT_EQ(::dlopen(path().c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Drivers, DriverModulesTest, testing::Values("panel.so", "sysmon.so"));

}  // namespace
