#include "DynamicLibrary.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "TemporaryDirectory.h"

namespace {

std::string moduleFile(const std::string& name) {
    return std::string(MFD_TEST_MODULE_DIR) + "/" + name + ".so";
}

TEST(DynamicLibrary, FindsASymbol) {
    sal::DynamicLibrary sut;
    std::string error;
    ASSERT_TRUE(sut.open(moduleFile("NoFactory"), error)) << error;
    const auto answer = reinterpret_cast<int (*)()>(sut.symbol("answerOfNoFactory", error));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer(), 42);
}

TEST(DynamicLibrary, MissingSymbolIsNamedWithoutThePath) {
    sal::DynamicLibrary sut;
    std::string error;
    sut.open(moduleFile("NoFactory"), error);
    EXPECT_EQ(sut.symbol("none", error), nullptr);
    EXPECT_EQ(error, "undefined symbol: none");
}

TEST(DynamicLibrary, MissingFileIsAnErrorWithoutThePath) {
    sal::DynamicLibrary sut;
    std::string error;
    EXPECT_FALSE(sut.open("/none/Axis.so", error));
    EXPECT_EQ(error, "cannot open shared object file: No such file or directory");
}

TEST(DynamicLibrary, CloseThatUnmapsGivesNoReason) {
    sal::DynamicLibrary sut;
    std::string error;
    sut.open(moduleFile("NoFactory"), error);
    EXPECT_EQ(sut.close(), "");
}

TEST(DynamicLibrary, CloseOfAnotherUsersCodeGivesTheReason) {
    sal::DynamicLibrary first;
    sal::DynamicLibrary second;
    std::string error;
    first.open(moduleFile("NoFactory"), error);
    second.open(moduleFile("NoFactory"), error);
    EXPECT_EQ(first.close(), "another driver of the same file is loaded");
    EXPECT_EQ(second.close(), "");
}

TEST(DynamicLibrary, CloseTwiceDoesNothing) {
    sal::DynamicLibrary sut;
    std::string error;
    sut.open(moduleFile("NoFactory"), error);
    sut.close();
    EXPECT_EQ(sut.close(), "");
}

TEST(DynamicLibrary, MovedFromItOwnsNothing) {
    sal::DynamicLibrary from;
    std::string error;
    from.open(moduleFile("NoFactory"), error);
    sal::DynamicLibrary to(std::move(from));
    EXPECT_EQ(from.close(), "");
    EXPECT_TRUE(to.symbol("answerOfNoFactory", error));
}

TEST(DynamicLibrary, ReplacedFileIsMappedBesideTheOld) {
    const TemporaryDirectory directory;
    const auto put = [&](const std::string& name) {
        std::filesystem::copy_file(moduleFile(name), directory.path("new"));
        std::filesystem::rename(directory.path("new"), directory.path("x.so"));
    };
    std::string error;
    // What the modules need is found from their own place only.
    sal::DynamicLibrary inPlace;
    inPlace.open(moduleFile("NoFactory"), error);
    sal::DynamicLibrary before;
    sal::DynamicLibrary after;
    put("NoFactory");
    ASSERT_TRUE(before.open(directory.path("x.so"), error)) << error;
    put("LacksFactory");
    ASSERT_TRUE(after.open(directory.path("x.so"), error)) << error;
    EXPECT_TRUE(after.symbol("mfdDriverAbi", error));
    EXPECT_FALSE(after.symbol("answerOfNoFactory", error));
    EXPECT_TRUE(before.symbol("answerOfNoFactory", error));
}

}  // namespace
