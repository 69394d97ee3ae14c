#pragma once

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <ios>
#include <iterator>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// The bytes of tests/data/frames/NAME.hex, which both ends of the queue protocol are held to.
/// MFD_TEST_DATA_DIR is set by the build.
inline std::vector<unsigned char> goldenFrame(const std::string& name) {
    std::ifstream file(MFD_TEST_DATA_DIR "/frames/" + name + ".hex");
    if (!file)
        throw std::runtime_error("no golden frame " + name);
    std::vector<unsigned char> bytes;
    unsigned int byte = 0;
    while (file >> std::hex >> byte)
        bytes.push_back(static_cast<unsigned char>(byte));
    return bytes;
}

/// The same as text, for comparing with what was sent.
inline std::string goldenText(const std::string& name) {
    const std::vector<unsigned char> bytes = goldenFrame(name);
    return {bytes.begin(), bytes.end()};
}

/// The names of all frames. Those that neither end sends, which it must survive all the same, begin with
/// "unsent/".
inline std::set<std::string> goldenFrameNames() {
    const std::filesystem::path root = MFD_TEST_DATA_DIR "/frames";
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
        if (entry.is_regular_file())
            names.insert(entry.path().lexically_relative(root).replace_extension().string());
    return names;
}

enum class EFrameWay { eToDriver, eToHost };

/// Whose frame it is says the code that its name begins with; one of neither way is meant for both ends.
inline bool goesOnly(EFrameWay way, const std::string& name) {
    constexpr std::array<std::string_view, 7> toDriver{"SETCFG", "SUBSCR", "SNDFDP", "CRTFID",
                                                       "INTCMP", "SHOWST", "DEINIT"};
    constexpr std::array<std::string_view, 8> toHost{"SETVAL", "SETVAF", "SETVAI", "SETVAB",
                                                     "UNSVAL", "TRIGGR", "SYSCMD", "DSPFID"};
    const std::string code = std::filesystem::path(name).filename().string().substr(0, 6);
    const auto holds = [&](const auto& codes) {
        return std::find(codes.begin(), codes.end(), code) != codes.end();
    };
    return way == EFrameWay::eToDriver ? holds(toDriver) : holds(toHost);
}

/// The frames that the end in front of which they lie has to read.
inline std::set<std::string> framesToRead(EFrameWay way) {
    std::set<std::string> names = goldenFrameNames();
    const EFrameWay other = way == EFrameWay::eToDriver ? EFrameWay::eToHost : EFrameWay::eToDriver;
    std::erase_if(names, [&](const std::string& name) { return goesOnly(other, name); });
    return names;
}

/// The frames that the end from which they come has to write.
inline std::set<std::string> framesToWrite(EFrameWay way) {
    std::set<std::string> names = framesToRead(way);
    std::erase_if(names, [](const std::string& name) { return name.starts_with("unsent/"); });
    return names;
}

/// A frame's name as the name of a test: letters and digits alone.
inline std::string testName(const std::string& frame) {
    std::string name;
    std::copy_if(frame.begin(), frame.end(), std::back_inserter(name),
                 [](unsigned char letter) { return std::isalnum(letter) != 0; });
    return name;
}
