#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

#include "GoldenFrame.h"

namespace {

struct Shown {
    std::string bytes;
    std::size_t length;

    bool operator==(const Shown&) const = default;
};

std::string text(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

/// "41 6e×3" is "Annn".
std::string bytesOf(const std::string& hex) {
    static const std::regex s_byte("([0-9a-f]{2})(?:×([0-9]+))?");
    std::istringstream words(hex);
    std::string bytes;
    for (std::string word; words >> word;) {
        std::smatch match;
        if (!std::regex_match(word, match, s_byte))
            throw std::runtime_error("no byte: " + word);
        const std::size_t count = match[2].matched ? std::stoul(match[2]) : 1;
        bytes.append(count, static_cast<char>(std::stoul(match[1], nullptr, 16)));
    }
    return bytes;
}

/// The frames of the document's examples: a heading with the length and a block, or a row of a table.
std::map<std::string, Shown> shownFrames() {
    static const std::regex s_heading("`([^`]+)`.* \\(([0-9]+) bytes\\)");
    static const std::regex s_row("\\| `([^`]+)` \\| .+ \\| (?:none|`([^`]+)`) \\| ([0-9]+) \\|");
    std::istringstream document(text(MFD_DOCS_DIR "/protocol.md"));
    std::string line;
    while (std::getline(document, line) && line != "## Examples")
        continue;

    std::map<std::string, Shown> frames;
    std::smatch match;
    const auto add = [&frames](const std::string& name, const std::string& hex, const std::string& length) {
        EXPECT_TRUE(frames.try_emplace(name, Shown{bytesOf(hex), std::stoul(length)}).second) << name;
    };
    while (std::getline(document, line)) {
        if (std::regex_match(line, match, s_row)) {
            add(match[1], match[2], match[3]);
        } else if (std::regex_match(line, match, s_heading)) {
            const std::string name = match[1];
            const std::string length = match[2];
            std::string hex;
            std::string row;
            while (std::getline(document, row) && row != "```")
                continue;
            while (std::getline(document, row) && row != "```")
                hex += row + " ";
            add(name, hex, length);
        }
    }
    return frames;
}

TEST(ProtocolDocument, ShowsExactlyTheGoldenFrames) {
    std::set<std::string> shown;
    for (const auto& [name, frame] : shownFrames())
        shown.insert(name);
    EXPECT_EQ(shown, goldenFrameNames());
}

TEST(ProtocolDocument, ShowsTheBytesAndTheLengthOfEachFrame) {
    for (const auto& [name, frame] : shownFrames()) {
        const std::string bytes = goldenText(name);
        EXPECT_TRUE(frame.bytes == bytes) << name;
        EXPECT_EQ(frame.length, bytes.size()) << name;
    }
}

}  // namespace
