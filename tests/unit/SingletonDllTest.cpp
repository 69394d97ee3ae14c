#include "sal/SingletonDll.h"

#include <gtest/gtest.h>

#include <memory>

#include "FIDParameterList.h"
#include "IFunctionID.h"
#include "InterfaceIds.h"
#include "LogCapture.h"
#include "sal/CmdProcessor.h"
#include "sal/ModuleLoader.h"

namespace {

TEST(SingletonDll, InstanceIsTheObjectThatWasConstructed) {
    const sal::CmdProcessor sut;
    EXPECT_EQ(sal::CmdProcessor::getInstance(), &sut);
}

TEST(SingletonDll, NoInstanceIsAnAssertion) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(sal::CmdProcessor::getInstance(), "assertion failed: s_pInstance\n");
}

TEST(SingletonDll, InstanceEndsWithTheObject) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            { const sal::CmdProcessor gone; }
            sal::CmdProcessor::getInstance();
        },
        "assertion failed: s_pInstance\n");
}

TEST(SingletonDll, SecondObjectIsAnAssertion) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            const sal::CmdProcessor first;
            const sal::CmdProcessor second;
        },
        "assertion failed: !s_pInstance\n");
}

TEST(SingletonDll, DriverModuleSeesTheHostsInstance) {
    LogCapture log;
    const std::unique_ptr<sal::Module> pModule(
        sal::ModuleLoader().load(sal::ModuleLoader::eLoadDefault, MFD_TEST_MODULE_DIR "/Logs.so"));
    ASSERT_TRUE(pModule);
    dynamic_cast<IFunctionID&>(*pModule->queryInterface(IID_IFunctionID)).sendFID("SAME LOG", {});
    EXPECT_NE(log.finish().find("DRIVER: SAME LOG\n"), std::string::npos);
}

}  // namespace
