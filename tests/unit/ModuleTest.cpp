#include "sal/Module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstdlib>
#include <memory>
#include <string_view>
#include <thread>

#include "FIDParameterList.h"
#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "InterfaceIds.h"
#include "LogCapture.h"
#include "TemporaryDirectory.h"
#include "sal/ModuleLoader.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

std::unique_ptr<sal::Module> loadTestModule(const std::string& name) {
    return std::unique_ptr<sal::Module>(sal::ModuleLoader().load(
        sal::ModuleLoader::eLoadDefault, std::string(MFD_TEST_MODULE_DIR) + "/" + name + ".so"));
}

IMFDConfiguration* configurationOf(sal::Module& module) {
    return dynamic_cast<IMFDConfiguration*>(module.queryInterface(IID_IMFDConfiguration));
}

IFunctionID* functionsOf(sal::Module& module) {
    return dynamic_cast<IFunctionID*>(module.queryInterface(IID_IFunctionID));
}

void configure(sal::Module& module, const std::string& driverID) {
    configurationOf(module)->setConfiguration(1, driverID, "work", "192.0.2.1", "eth0", "192.0.2.2",
                                              "/nvram");
}

/// Whether code of a file of that name is mapped.
bool isMapped(const std::string& name) {
    const auto compare = [](dl_phdr_info* pInfo, std::size_t, void* pName) {
        const std::string_view file(pInfo->dlpi_name);
        return file.ends_with("/" + *static_cast<std::string*>(pName)) ? 1 : 0;
    };
    std::string file = name + ".so";
    return ::dl_iterate_phdr(compare, &file) != 0;
}

TEST(Module, AnswersBothInterfacesOfADriver) {
    const auto sut = loadTestModule("VersionOne");
    EXPECT_TRUE(functionsOf(*sut));
    EXPECT_TRUE(configurationOf(*sut));
}

TEST(Module, AnswersNullForWhatTheDriverLacks) {
    EXPECT_EQ(loadTestModule("LacksConfiguration")->queryInterface(IID_IMFDConfiguration), nullptr);
    EXPECT_EQ(loadTestModule("LacksFunctionID")->queryInterface(IID_IFunctionID), nullptr);
    EXPECT_EQ(loadTestModule("AnswersNothing")->queryInterface(IID_IFunctionID), nullptr);
    EXPECT_EQ(loadTestModule("VersionOne")->queryInterface(9999), nullptr);
}

TEST(Module, OtherInterfacesAreTheDriversOwn) {
    const auto sut = loadTestModule("IsPanel");
    EXPECT_NE(sut->queryInterface(IID_IMacroSystem), nullptr);
    EXPECT_NE(sut->queryInterface(IID_IPanelMFD), nullptr);
}

TEST(Module, SameInterfaceIsTheSameObject) {
    const auto sut = loadTestModule("VersionOne");
    EXPECT_EQ(sut->queryInterface(IID_IFunctionID), sut->queryInterface(IID_IFunctionID));
}

TEST(Module, InterfacesLeadToEachOther) {
    const auto sut = loadTestModule("VersionOne");
    EXPECT_EQ(functionsOf(*sut)->queryInterface(IID_IMFDConfiguration),
              sut->queryInterface(IID_IMFDConfiguration));
    EXPECT_EQ(configurationOf(*sut)->queryInterface(IID_IFunctionID), sut->queryInterface(IID_IFunctionID));
}

TEST(Module, OperationsReachTheDriverWithTheirValues) {
    const TemporaryDirectory directory;
    ::setenv("MFD_TEST_RECORD", directory.path("record").c_str(), 1);
    {
        const auto sut = loadTestModule("Recorder");
        configure(*sut, "AXIS1");
        EXPECT_TRUE(configurationOf(*sut)->initializationCompleted());
        EXPECT_TRUE(functionsOf(*sut)->sendFID("MOVE", {}));
        EXPECT_TRUE(functionsOf(*sut)->subscribe("DONE"));
        EXPECT_TRUE(functionsOf(*sut)->showState());
        EXPECT_TRUE(configurationOf(*sut)->createFIDList());
        EXPECT_TRUE(configurationOf(*sut)->deinitialize());
    }
    ::unsetenv("MFD_TEST_RECORD");
    const std::string record = directory.read("record");
    for (const char* what : {"AXIS1", "192.0.2.2", "/nvram", "initializationCompleted", "MOVE", "DONE",
                             "showState", "createFIDList", "deinitialize"})
        EXPECT_THAT(record, HasSubstr(what));
}

TEST(Module, DeletingItDestroysTheDriver) {
    const TemporaryDirectory directory;
    ::setenv("MFD_TEST_RECORD", directory.path("record").c_str(), 1);
    loadTestModule("Recorder").reset();
    ::unsetenv("MFD_TEST_RECORD");
    EXPECT_THAT(directory.read("record"), EndsWith("destroyed\n"));
}

class ModuleGuard : public testing::Test {
protected:
    LogCapture log;
    std::unique_ptr<sal::Module> sut = loadTestModule("ThrowsEverywhere");
};

TEST_F(ModuleGuard, FunctionCallThatThrowsIsFalse) {
    EXPECT_FALSE(functionsOf(*sut)->sendFID("MOVE", {}));
    EXPECT_FALSE(functionsOf(*sut)->subscribe("MOVE"));
    EXPECT_FALSE(functionsOf(*sut)->showState());
}

TEST_F(ModuleGuard, ConfigurationCallThatThrowsIsFalse) {
    EXPECT_FALSE(configurationOf(*sut)->setConfiguration(0, "AXIS1", "", "", "", "", ""));
    EXPECT_FALSE(configurationOf(*sut)->initializationCompleted());
    EXPECT_FALSE(configurationOf(*sut)->deinitialize());
    EXPECT_FALSE(configurationOf(*sut)->createFIDList());
}

TEST_F(ModuleGuard, HandingInAnInterfaceThrowsNothing) {
    EXPECT_NO_THROW(configurationOf(*sut)->setPanelStateInterface(nullptr));
    EXPECT_NO_THROW(configurationOf(*sut)->setDistributorFIDInterface(nullptr));
    EXPECT_NO_THROW(configurationOf(*sut)->setSystemInterface(nullptr));
}

TEST_F(ModuleGuard, QueryThatThrowsIsNull) {
    EXPECT_EQ(sut->queryInterface(4711), nullptr);
    EXPECT_THAT(log.finish(),
                HasSubstr("an exception left queryInterface(4711): std::runtime_error: thrown by "
                          "queryInterface\n"));
}

TEST_F(ModuleGuard, ExceptionIsLoggedWithTheDriverID) {
    configure(*sut, "AXIS1");
    functionsOf(*sut)->sendFID("MOVE", {});
    EXPECT_THAT(log.finish(), HasSubstr("error    MODULE: driver AXIS1: an exception left sendFID(MOVE): "
                                        "std::runtime_error: thrown by sendFID\n"));
}

TEST_F(ModuleGuard, ExceptionBeforeTheConfigurationIsLoggedWithTheFile) {
    functionsOf(*sut)->subscribe("MOVE");
    EXPECT_THAT(log.finish(),
                HasSubstr("driver " MFD_TEST_MODULE_DIR "/ThrowsEverywhere.so: an exception left"));
}

TEST_F(ModuleGuard, ExceptionOfSetConfigurationHasTheIDAlready) {
    configure(*sut, "AXIS1");
    EXPECT_THAT(log.finish(), HasSubstr("driver AXIS1: an exception left setConfiguration(): "));
}

TEST_F(ModuleGuard, ExceptionOfAnyTypeIsCaught) {
    sut = loadTestModule("ThrowsInSendFID");
    EXPECT_FALSE(functionsOf(*sut)->sendFID("INT", {}));
    EXPECT_THAT(log.finish(), HasSubstr("an exception left sendFID(INT): an exception of type int\n"));
}

/// Keeps what it is told.
class Observer : public sal::Module::Observer {
public:
    Observer() { sal::Module::setObserver(this); }
    ~Observer() override { sal::Module::setObserver(nullptr); }

    void callBegins(const std::string& driverID, const char* operation) override {
        told.push_back("begins " + driverID + " " + operation);
    }
    void callEnded(const std::string& driverID, const char* operation) override {
        told.push_back("ended " + driverID + " " + operation);
    }
    void driverDeleted(const std::string& driverID) override { told.push_back("deleted " + driverID); }

    std::vector<std::string> told;
};

TEST(ModuleObserver, FollowsADriverThroughItsLife) {
    const Observer observer;
    auto sut = loadTestModule("VersionOne");
    configure(*sut, "AXIS1");
    configurationOf(*sut)->initializationCompleted();
    configurationOf(*sut)->deinitialize();
    sut.reset();
    EXPECT_THAT(observer.told,
                ElementsAre("begins AXIS1 setConfiguration", "ended AXIS1 setConfiguration",
                            "begins AXIS1 initializationCompleted", "ended AXIS1 initializationCompleted",
                            "begins AXIS1 deinitialize", "ended AXIS1 deinitialize", "deleted AXIS1"));
}

TEST(ModuleObserver, IsToldOfTheDeletionWhenTheDriverIsGone) {
    const TemporaryDirectory directory;
    ::setenv("MFD_TEST_RECORD", directory.path("record").c_str(), 1);
    class RecordReader : public Observer {
    public:
        explicit RecordReader(const TemporaryDirectory& source) : m_source(source) {}
        void driverDeleted(const std::string&) override { recordWhenDeleted = m_source.read("record"); }

        std::string recordWhenDeleted;

    private:
        const TemporaryDirectory& m_source;
    };
    const RecordReader observer(directory);
    auto sut = loadTestModule("Recorder");
    configure(*sut, "AXIS1");
    sut.reset();
    ::unsetenv("MFD_TEST_RECORD");
    EXPECT_THAT(observer.recordWhenDeleted, EndsWith("destroyed\n"));
}

TEST(ModuleObserver, IsToldOfTheEndOfACallThatThrows) {
    const LogCapture log;
    const Observer observer;
    const auto sut = loadTestModule("ThrowsEverywhere");
    configure(*sut, "AXIS1");
    EXPECT_THAT(observer.told, ElementsAre("begins AXIS1 setConfiguration", "ended AXIS1 setConfiguration"));
}

TEST(ModuleObserver, IsNotToldOfADriverWithoutID) {
    const Observer observer;
    auto sut = loadTestModule("VersionOne");
    configurationOf(*sut)->deinitialize();
    sut.reset();
    EXPECT_TRUE(observer.told.empty());
}

TEST(ModuleCode, IsUnmappedWithTheModule) {
    LogCapture log;
    auto sut = loadTestModule("VersionOne");
    EXPECT_TRUE(isMapped("VersionOne"));
    sut.reset();
    EXPECT_FALSE(isMapped("VersionOne"));
    EXPECT_EQ(log.finish(), "");
}

TEST(ModuleCode, StaysForAnotherDriverOfTheFile) {
    LogCapture log;
    auto first = loadTestModule("VersionOne");
    auto second = loadTestModule("VersionOne");
    configure(*first, "AXIS1");
    first.reset();
    EXPECT_TRUE(isMapped("VersionOne"));
    second.reset();
    EXPECT_FALSE(isMapped("VersionOne"));
    EXPECT_THAT(log.finish(),
                EndsWith("warning  MODULE: driver AXIS1: the code of " MFD_TEST_MODULE_DIR
                         "/VersionOne.so stays mapped: another driver of the same file is loaded\n"));
}

TEST(ModuleCode, UniqueSymbolThatPinsItIsNamed) {
    LogCapture log;
    auto sut = loadTestModule("PinnedByUniqueSymbol");
    ASSERT_TRUE(sut);
    sut.reset();
    if (!isMapped("PinnedByUniqueSymbol"))
        GTEST_SKIP() << "this compiler makes no unique symbols";
    EXPECT_THAT(log.finish(),
                HasSubstr("stays mapped: its symbol \"UniqueCounter<int>::s_count\" is unique in the "
                          "process; compile the driver with -fno-gnu-unique\n"));
}

TEST(ModuleCode, LinkFlagThatPinsItIsNamed) {
    LogCapture log;
    loadTestModule("PinnedByNoDelete").reset();
    EXPECT_TRUE(isMapped("PinnedByNoDelete"));
    EXPECT_THAT(log.finish(), HasSubstr("stays mapped: it is linked with -z nodelete\n"));
}

TEST(ModuleCode, PendingThreadLocalDestructorIsNamed) {
    LogCapture log;
    auto sut = loadTestModule("PinnedByThreadLocal");
    std::thread([&] {
        functionsOf(*sut)->sendFID("TOUCH", {});
        sut.reset();
        EXPECT_TRUE(isMapped("PinnedByThreadLocal"));
    }).join();
    EXPECT_THAT(log.finish(),
                HasSubstr("stays mapped: a thread that used it has a thread-local destructor of it "
                          "pending, or another library needs it\n"));
}

}  // namespace
