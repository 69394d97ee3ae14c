#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

// The files of tests/data/files, each of which is the case of a test. MFD_TEST_DATA_DIR is set by the build.

inline std::filesystem::path fileCases(const std::string& kind) {
    return std::filesystem::path(MFD_TEST_DATA_DIR "/files") / kind;
}

/// The bytes of the file of that kind and name.
inline std::string fileCase(const std::string& kind, const std::string& name) {
    std::ifstream file(fileCases(kind) / (name + ".xml"), std::ios::binary);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The name of a test, "WrongRoot", for that of its case, "wrong-root".
inline std::string fileTestName(const std::string& name) {
    std::string result;
    bool isFirst = true;
    for (const char c : name) {
        if (c != '-')
            result += isFirst ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
        isFirst = c == '-';
    }
    return result;
}

/// Each file of that kind is one of the cases, and each case has its file.
template <class Cases>
void expectHoldsEveryFile(const Cases& cases, const std::string& kind) {
    std::set<std::string> listed;
    for (const auto& file : cases)
        listed.insert(file.name);
    std::set<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(fileCases(kind)))
        found.insert(entry.path().stem().string());
    EXPECT_EQ(listed, found);
}
