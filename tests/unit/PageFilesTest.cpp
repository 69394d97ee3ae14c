#include "PageFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;

TEST(PageFilesTest, HoldEveryFileOfThePageAsItIs) {
    std::set<std::string> expected;
    for (const auto& entry : fs::recursive_directory_iterator(MFD_PAGE_DIR)) {
        if (!entry.is_regular_file() || entry.path().extension() == ".md")
            continue;
        const std::string path = "/" + fs::relative(entry.path(), MFD_PAGE_DIR).string();
        expected.insert(path);
        const PageFile* pFile = findPageFile(path);
        ASSERT_NE(pFile, nullptr) << path;
        std::ostringstream bytes;
        bytes << std::ifstream(entry.path(), std::ios::binary).rdbuf();
        EXPECT_EQ(pFile->bytes, bytes.str()) << path;
    }
    EXPECT_EQ(pageFiles().size(), expected.size());
}

TEST(PageFilesTest, SlashIsThePageItself) {
    ASSERT_NE(findPageFile("/"), nullptr);
    EXPECT_EQ(findPageFile("/"), findPageFile("/index.html"));
    EXPECT_EQ(findPageFile("/")->contentType, "text/html; charset=utf-8");
    EXPECT_EQ(findPageFile("/none.js"), nullptr);
    EXPECT_EQ(findPageFile("/../index.html"), nullptr);
}

TEST(PageFilesTest, GzipIsShorterOrNotThere) {
    for (const PageFile& file : pageFiles()) {
        if (file.zipped.empty())
            continue;
        EXPECT_LT(file.zipped.size(), file.bytes.size()) << file.path;
        EXPECT_EQ(file.zipped.substr(0, 2), "\x1f\x8b") << file.path;
    }
}

}  // namespace
