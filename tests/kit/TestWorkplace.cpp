#include "TestWorkplace.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

TestWorkplace::TestWorkplace() {
    std::string name = fs::temp_directory_path() / "mfd-system-XXXXXX";
    if (!mkdtemp(name.data()))
        throw std::runtime_error("no temporary directory " + name);
    m_directory = name;
    fs::create_directory(drivers());
    fs::create_directory(workdir());
}

TestWorkplace::~TestWorkplace() {
    std::error_code ignored;
    fs::remove_all(m_directory, ignored);
}

fs::path TestWorkplace::build() {
    return MFD_BUILD_DIR;
}

void TestWorkplace::addModule(const std::string& name) const {
    fs::copy_file(build() / "lib/testmodules" / (name + ".so"), drivers() / (name + ".so"));
    describe(name, name + ".so");
}

void TestWorkplace::describe(const std::string& type, const std::string& fileName) const {
    writeFile(drivers() / (type + ".xml"),
              "<?xml version=\"1.0\"?>\n<mfDriverModule>\n    <module_type name=\"" + fileName +
                  "\" type=\"" + type +
                  "\" description=\"\" version=\"1.0\" pdlFile=\"\" prefix=\"\"/>\n"
                  "</mfDriverModule>\n");
}

void TestWorkplace::configure(const std::string& entries) const {
    writeFile(configuration(), "<?xml version=\"1.0\"?>\n<workplaces>\n<workplace id=\"0\">\n" + entries +
                                   "</workplace>\n</workplaces>\n");
}

std::string TestWorkplace::entry(const std::string& driverID, const std::string& type,
                                 const std::string& interfaceType, const std::string& further) {
    return "<mainframeDriver driverID=\"" + driverID + "\" driverType=\"" + type +
           "\" version=\"1.0\" workingDirectory=\"data/" + driverID + "\" interfaceType=\"" + interfaceType +
           "\" " + further + "/>\n";
}

HostProcess::Start TestWorkplace::host(const std::vector<std::string>& options) const {
    HostProcess::Start start;
    start.program = build() / "bin/mfhost";
    start.arguments = {"--drivers", build() / "lib/mfdrivers", "--drivers", drivers(),
                       "--config",  configuration(),           "--workdir", workdir()};
    // Machines of tests share one /run.
    if (std::find(options.begin(), options.end(), "--control") == options.end())
        start.arguments.insert(start.arguments.end() - 2, "--no-control");
    // Many hosts start at once: each would have 64 MB made ready.
    const auto isOfRecording = [](const std::string& option) { return option.starts_with("--record"); };
    if (std::none_of(options.begin(), options.end(), isOfRecording))
        start.arguments.insert(start.arguments.end() - 2, {"--record-size", "1M"});
    start.arguments.insert(start.arguments.end(), options.begin(), options.end());
    start.files = m_directory;
    return start;
}

std::string TestWorkplace::sandboxFault() const {
    HostProcess::Start start;
    start.program = build() / "bin/mfhost";
    start.arguments = {"--probe-sandbox"};
    start.files = m_directory;
    HostProcess probe(start);
    return probe.waitForEnd() == 0 ? std::string() : "needs mount and network namespaces: " + probe.log();
}

void writeFile(const fs::path& path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    if (!file)
        throw std::runtime_error("cannot write " + path.string());
}

void replaceFile(const fs::path& path, const std::string& text) {
    const fs::path draft = path.string() + ".new";
    writeFile(draft, text);
    fs::rename(draft, path);
}

std::string readFile(const fs::path& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}
