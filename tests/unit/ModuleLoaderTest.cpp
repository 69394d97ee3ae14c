#include "sal/ModuleLoader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>

#include "FIDParameterList.h"
#include "IFunctionID.h"
#include "InterfaceIds.h"
#include "LogCapture.h"
#include "TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

std::string moduleFile(const std::string& name) {
    return std::string(MFD_TEST_MODULE_DIR) + "/" + name + ".so";
}

std::unique_ptr<sal::Module> load(const std::string& file) {
    return std::unique_ptr<sal::Module>(sal::ModuleLoader().load(sal::ModuleLoader::eLoadDefault, file));
}

/// What is logged when the file does not load.
std::string failureOf(const std::string& file) {
    LogCapture log;
    EXPECT_EQ(load(file), nullptr);
    return log.finish();
}

bool takes(sal::Module& module, const std::string& fid) {
    return dynamic_cast<IFunctionID&>(*module.queryInterface(IID_IFunctionID)).sendFID(fid, {});
}

TEST(ModuleLoader, LoadsADriverAndLogsNothing) {
    LogCapture log;
    EXPECT_TRUE(load(moduleFile("VersionOne")));
    EXPECT_EQ(log.finish(), "");
}

TEST(ModuleLoader, ModuleOutlivesItsLoader) {
    const auto pModule = load(moduleFile("VersionOne"));
    ASSERT_TRUE(pModule);
    EXPECT_TRUE(takes(*pModule, "VERSION 1"));
}

TEST(ModuleLoader, MissingFileIsNamedInTheLoadersWords) {
    EXPECT_THAT(
        failureOf("/none/Axis.so"),
        HasSubstr("error    MODULE: cannot load the driver module /none/Axis.so: cannot open shared object "
                  "file: No such file or directory\n"));
}

TEST(ModuleLoader, FileThatIsNoModuleIsSaidSo) {
    const TemporaryDirectory directory;
    directory.write("Axis.so", std::string(100, 'x'));
    EXPECT_THAT(failureOf(directory.path("Axis.so")), HasSubstr("Axis.so: invalid ELF header\n"));
}

TEST(ModuleLoader, MissingSymbolIsNamed) {
    EXPECT_THAT(failureOf(moduleFile("MissingSymbol")), HasSubstr("undefined symbol: "));
}

TEST(ModuleLoader, OtherAbiIsRefused) {
    EXPECT_THAT(failureOf(moduleFile("WrongAbi")), HasSubstr("this host has 1; build it again"));
}

TEST(ModuleLoader, MissingAbiIsRefused) {
    EXPECT_THAT(failureOf(moduleFile("NoFactory")),
                HasSubstr("MODULE: cannot load the driver module " MFD_TEST_MODULE_DIR
                          "/NoFactory.so: MFD_DRIVER is missing in it (undefined symbol: mfdDriverAbi)\n"));
}

TEST(ModuleLoader, MissingFactoryIsRefused) {
    EXPECT_THAT(
        failureOf(moduleFile("LacksFactory")),
        HasSubstr("LacksFactory.so: MFD_DRIVER is missing in it (undefined symbol: mfdCreateDriver)\n"));
}

TEST(ModuleLoader, FactoryThatMakesNothingIsRefused) {
    EXPECT_THAT(failureOf(moduleFile("NullFactory")),
                HasSubstr("NullFactory.so: its factory made no driver\n"));
}

TEST(ModuleLoader, FactoryThatThrowsIsRefused) {
    EXPECT_THAT(failureOf(moduleFile("ThrowsInFactory")),
                HasSubstr("its driver cannot be made: std::runtime_error: no device\n"));
}

TEST(ModuleLoader, FailureIsOneLine) {
    const std::string text = failureOf(moduleFile("NoFactory"));
    EXPECT_EQ(text.find('\n'), text.size() - 1);
}

TEST(ModuleLoader, ModuleThatDiesWhereItIsTriedOutIsRefused) {
    EXPECT_THAT(failureOf(moduleFile("DiesInTrial")),
                HasSubstr("error    MODULE: cannot load the driver module " MFD_TEST_MODULE_DIR
                          "/DiesInTrial.so: tried out in a process of its own, that process was "
                          "ended by signal 6"));
}

TEST(ModuleLoader, UnprobedLoadTriesNothingOut) {
    const std::unique_ptr<sal::Module> pModule(
        sal::ModuleLoader().load(sal::ModuleLoader::eLoadUnprobed, moduleFile("DiesInTrial")));
    EXPECT_TRUE(pModule);
}

TEST(ModuleLoader, NamedPipeDoesNotHangIt) {
    const TemporaryDirectory directory;
    ASSERT_EQ(::mkfifo(directory.path("Axis.so").c_str(), 0600), 0);
    EXPECT_THAT(failureOf(directory.path("Axis.so")), HasSubstr("not a regular file\n"));
}

TEST(ModuleLoader, TryingOutTellsTheFaultAndLogsNothing) {
    LogCapture log;
    EXPECT_EQ(sal::ModuleLoader::tryOut(moduleFile("NoFactory")),
              "MFD_DRIVER is missing in it (undefined symbol: mfdDriverAbi)");
    EXPECT_EQ(sal::ModuleLoader::tryOut("/none/Axis.so"),
              "cannot open shared object file: No such file or directory");
    EXPECT_THAT(sal::ModuleLoader::tryOut(moduleFile("DiesInTrial")),
                HasSubstr("that process was ended by signal 6"));
    EXPECT_EQ(sal::ModuleLoader::tryOut(moduleFile("VersionOne")), "");
    EXPECT_EQ(log.finish(), "");
}

TEST(ModuleLoader, FaultIsFoundInItsLogLine) {
    EXPECT_EQ(sal::ModuleLoader::faultIn("cannot load the driver module /a b/x.so: undefined symbol: y"),
              "undefined symbol: y");
    EXPECT_EQ(sal::ModuleLoader::faultIn("cannot load the driver module /x.so"), "");
    EXPECT_EQ(sal::ModuleLoader::faultIn("Runs /x.so: well"), "");
}

TEST(ModuleLoader, EmptyNameIsRefused) {
    failureOf("");
}

TEST(ModuleLoader, BareNameIsLookedUpInTheWorkingDirectory) {
    const TemporaryDirectory directory;
    fs::copy_file(moduleFile("VersionOne"), directory.path("Bare.so"));
    const fs::path before = fs::current_path();
    fs::current_path(directory.path());
    const auto pModule = load("Bare.so");
    fs::current_path(before);
    EXPECT_TRUE(pModule);
}

class ModuleLoaderReplacedFile : public testing::Test {
protected:
    void put(const std::string& module) const {
        fs::copy_file(moduleFile(module), directory.path("new"));
        fs::rename(directory.path("new"), directory.path("Axis.so"));
    }
    std::unique_ptr<sal::Module> load() const { return ::load(directory.path("Axis.so")); }

    TemporaryDirectory directory;
};

TEST_F(ModuleLoaderReplacedFile, RunsTheNewCodeAfterAnUnload) {
    put("VersionOne");
    load().reset();
    put("VersionTwo");
    const auto pModule = load();
    EXPECT_TRUE(takes(*pModule, "VERSION 2"));
}

TEST_F(ModuleLoaderReplacedFile, RunsTheNewCodeBesideTheOld) {
    put("VersionOne");
    const auto pOld = load();
    put("VersionTwo");
    const auto pNew = load();
    EXPECT_TRUE(takes(*pNew, "VERSION 2"));
    EXPECT_TRUE(takes(*pOld, "VERSION 1"));
}

TEST_F(ModuleLoaderReplacedFile, RunsTheNewCodeOverCodeThatStaysMapped) {
    const LogCapture log;
    put("PinnedByNoDelete");
    load().reset();
    put("VersionTwo");
    const auto pModule = load();
    EXPECT_TRUE(takes(*pModule, "VERSION 2"));
}

TEST_F(ModuleLoaderReplacedFile, RunsTheNewCodeEachTime) {
    const LogCapture log;
    std::vector<std::unique_ptr<sal::Module>> modules;
    for (int i = 0; i < 20; ++i) {
        put(i % 2 ? "VersionOne" : "VersionTwo");
        modules.push_back(load());
        ASSERT_TRUE(takes(*modules.back(), i % 2 ? "VERSION 1" : "VERSION 2")) << i;
    }
}

TEST_F(ModuleLoaderReplacedFile, SameFileIsMappedOnce) {
    LogCapture log;
    put("VersionOne");
    auto pFirst = load();
    const auto pSecond = load();
    pFirst.reset();
    EXPECT_THAT(log.finish(), HasSubstr("another driver of the same file is loaded"));
}

TEST_F(ModuleLoaderReplacedFile, RelativePathWorksAsWell) {
    const fs::path before = fs::current_path();
    fs::current_path(directory.path());
    put("VersionOne");
    const auto pOld = ::load("Axis.so");
    put("VersionTwo");
    const auto pNew = ::load("Axis.so");
    fs::current_path(before);
    EXPECT_TRUE(takes(*pNew, "VERSION 2"));
}

}  // namespace
