#include "FakeHost.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "Console.h"

namespace fakehost {
namespace {

FakeHost* g_pCurrent = nullptr;

}  // namespace

FakeHost::FakeHost() {
    if (g_pCurrent)
        throw std::logic_error("there is a FakeHost already");
    Journal::instance().reset();
    QueueBoard::instance().reset();
    Console::instance() = Console();
    std::string pattern = (std::filesystem::temp_directory_path() / "fakehost.XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("cannot make a directory like " + pattern);
    m_root = pattern;
    m_formerDirectory = std::filesystem::current_path().string();
    makeDirectory(workingDirectory);
    std::filesystem::current_path(realPath(workingDirectory));
    m_pLogManager = std::make_unique<sal::LogManager>();
    m_pCmdProcessor = std::make_unique<sal::CmdProcessor>();
    g_pCurrent = this;
}

FakeHost::~FakeHost() {
    Journal::instance().setObserver(nullptr);
    removeFiles();
}

void FakeHost::removeFiles() {
    if (!g_pCurrent)
        return;
    std::error_code ignored;
    std::filesystem::current_path(g_pCurrent->m_formerDirectory, ignored);
    std::filesystem::remove_all(g_pCurrent->m_root, ignored);
    g_pCurrent = nullptr;
}

FakeHost& FakeHost::current() {
    if (!g_pCurrent)
        throw std::logic_error("there is no FakeHost");
    return *g_pCurrent;
}

void FakeHost::writeFile(const std::string& path, const std::string& text) {
    const std::filesystem::path real = realPath(path);
    std::filesystem::create_directories(real.parent_path());
    std::ofstream file(real, std::ios::binary);
    file << text;
    if (!file.flush())
        throw std::runtime_error("cannot write " + real.string());
}

void FakeHost::makeDirectory(const std::string& path) {
    std::filesystem::create_directories(realPath(path));
}

std::string FakeHost::realPath(const std::string& path) const {
    return m_root + (path.starts_with('/') ? path : workingDirectory + "/" + path);
}

void FakeHost::addModule(const std::string& path, std::function<IInterface*()> make) {
    modules[path] = std::move(make);
}

}  // namespace fakehost
