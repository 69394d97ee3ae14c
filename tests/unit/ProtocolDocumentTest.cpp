#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace {

std::string text(const std::filesystem::path& path) {
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

TEST(ProtocolDocument, ShowsEachGoldenFrame) {
    const std::string document = text(MFD_DOCS_DIR "/protocol.md");
    int frames = 0;
    for (const auto& entry : std::filesystem::directory_iterator(MFD_TEST_DATA_DIR "/frames")) {
        EXPECT_NE(document.find("```\n" + text(entry) + "```\n"), std::string::npos) << entry.path();
        ++frames;
    }
    EXPECT_EQ(frames, 19);
}

}  // namespace
