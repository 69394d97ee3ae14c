#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <set>
#include <string>
#include <utility>

namespace {

const std::set<std::string> s_classes{
    "FIDSegmentPointer", "MDMConfigDistributor",      "MDMConfigurationIPCI",   "MDMDriverIPCI",
    "MDMFidCreator",     "MDMFidDistributor",         "MDMMainframeDriverPort", "MDMMfLoaderInfo",
    "MDMModuleChecker",  "MDMModuleHandler",          "MDMModuleInfo",          "MDMModuleLoader",
    "MDMModuleParser",   "MDMPanelConfigurationIPCI", "MDMVirtualPanelIPCI",    "MfDriverManager",
    "SegmentPointerBase"};

/// The names that a library defines for others, as the linker knows them.
std::set<std::string> exportedNames(const std::string& file) {
    std::set<std::string> result;
    const std::string command = "nm -D --defined-only '" + file + "'";
    FILE* pPipe = popen(command.c_str(), "r");
    if (!pPipe)
        return result;
    std::array<char, 4096> line{};
    while (fgets(line.data(), line.size(), pPipe)) {
        std::string text = line.data();
        while (!text.empty() && text.back() == '\n')
            text.pop_back();
        // An address, a letter, the name.
        const auto letter = text.find(' ');
        if (letter != std::string::npos && text.size() > letter + 3)
            result.insert(text.substr(letter + 3));
    }
    pclose(pPipe);
    return result;
}

/// What a length and that many characters at the beginning of the text name, and what comes after them.
std::pair<std::string, std::string> takeName(const std::string& text) {
    std::size_t digits = 0;
    while (digits < text.size() && std::isdigit(static_cast<unsigned char>(text[digits])))
        ++digits;
    if (digits == 0 || digits > 3)
        return {};
    const std::size_t length = std::stoul(text.substr(0, digits));
    if (text.size() < digits + length)
        return {};
    return {text.substr(digits, length), text.substr(digits + length)};
}

/// The class whose operation, table or type information the name is; empty for everything else, also for what
/// belongs to a class inside it or only returns or takes such a class.
std::string classOf(const std::string& name) {
    for (const char* beginning : {"_ZTV", "_ZTT", "_ZTI", "_ZTS"}) {
        if (name.starts_with(beginning)) {
            const auto [className, rest] = takeName(name.substr(4));
            return rest.empty() && s_classes.count(className) ? className : std::string();
        }
    }
    for (const std::string beginning : {"_ZNK", "_ZN"}) {
        if (!name.starts_with(beginning))
            continue;
        const auto [className, rest] = takeName(name.substr(beginning.size()));
        const bool isOperation =
            !takeName(rest).first.empty() && takeName(rest).second.find_first_of("EB") == 0;
        const bool isLife = rest.starts_with("C1E") || rest.starts_with("C2E") || rest.starts_with("D0E") ||
                            rest.starts_with("D1E") || rest.starts_with("D2E");
        return s_classes.count(className) && (isOperation || isLife) ? className : std::string();
    }
    return {};
}

}  // namespace

TEST(ExportedSymbols, FlagIsExported) {
    EXPECT_EQ(exportedNames(MFD_MODULE_FILE).count("g_debugStartMFDProcess"), 1u);
}

TEST(ExportedSymbols, EveryClassIsExported) {
    std::set<std::string> found;
    for (const std::string& name : exportedNames(MFD_MODULE_FILE))
        found.insert(classOf(name));
    found.erase(std::string());
    EXPECT_EQ(found, s_classes);
}

TEST(ExportedSymbols, NothingElseIsExported) {
    std::set<std::string> others;
    for (const std::string& name : exportedNames(MFD_MODULE_FILE)) {
        if (classOf(name).empty())
            others.insert(name);
    }
    EXPECT_EQ(others, std::set<std::string>{"g_debugStartMFDProcess"});
}

TEST(ExportedSymbols, OperationsAreExportedAndNotWhatOnlyReturnsOrTakesTheirClass) {
    EXPECT_EQ(exportedNames(MFD_EXPORT_DECOYS_FILE), std::set<std::string>{"_ZN13MDMDriverIPCI4initEv"});
}
