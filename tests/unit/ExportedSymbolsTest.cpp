#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <memory>
#include <set>
#include <string>

namespace {

const std::set<std::string> s_classes{
    "FIDSegmentPointer", "MDMConfigDistributor",      "MDMConfigurationIPCI",   "MDMDriverIPCI",
    "MDMFidCreator",     "MDMFidDistributor",         "MDMMainframeDriverPort", "MDMMfLoaderInfo",
    "MDMModuleChecker",  "MDMModuleHandler",          "MDMModuleInfo",          "MDMModuleLoader",
    "MDMModuleParser",   "MDMPanelConfigurationIPCI", "MDMVirtualPanelIPCI",    "MfDriverManager",
    "SegmentPointerBase"};

/// The names that the library defines for others, demangled.
std::set<std::string> exportedNames() {
    std::set<std::string> result;
    const std::string command = std::string("nm -D -C --defined-only '") + MFD_MODULE_FILE + "'";
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

/// The class that a name belongs to; empty when it belongs to none.
std::string classOf(std::string name) {
    for (const char* beginning : {"vtable for ", "VTT for ", "typeinfo for ", "typeinfo name for ",
                                  "virtual thunk to ", "non-virtual thunk to "}) {
        if (name.starts_with(beginning))
            return classOf(name.substr(std::string(beginning).size()));
    }
    name = name.substr(0, name.find("::"));
    return s_classes.count(name) ? name : std::string();
}

}  // namespace

TEST(ExportedSymbols, FlagIsExported) {
    EXPECT_EQ(exportedNames().count("g_debugStartMFDProcess"), 1u);
}

TEST(ExportedSymbols, EveryClassIsExported) {
    std::set<std::string> found;
    for (const std::string& name : exportedNames())
        found.insert(classOf(name));
    found.erase(std::string());
    EXPECT_EQ(found, s_classes);
}

TEST(ExportedSymbols, NothingElseIsExported) {
    std::set<std::string> others;
    for (const std::string& name : exportedNames()) {
        if (classOf(name).empty())
            others.insert(name);
    }
    EXPECT_EQ(others, std::set<std::string>{"g_debugStartMFDProcess"});
}
