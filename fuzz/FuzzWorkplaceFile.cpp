#include <algorithm>
#include <cstdint>

#include "ConfigurationCheck.h"
#include "Expect.h"
#include "FakeHost.h"
#include "MDMFidDistributor.h"
#include "MDMModuleHandler.h"
#include "MemoryFile.h"
#include "MfDriverManager.h"
#include "NestingDepth.h"
#include "RecordingDriver.h"
#include "RecordingSystem.h"
#include "Silence.h"
#include "WorkplaceFile.h"
#include "XmlDocument.h"
#include "XmlInput.h"
#include "sal/Path.h"

// Whatever stands in a workplace file: what the host lets through starts and reloads without harm, no reload
// holds the host up, and the module starts the very drivers that the host has read from the file.

namespace {

constexpr std::size_t g_mostReloads = 8;

struct Machine {
    fakehost::FakeHost host;
    MemoryFile file;

    Machine() {
        g_debugStartMFDProcess = false;
        host.writeFile("/mods/axis.xml",
                       "<mfDriverModule><module_type name=\"libAxis.so\" type=\"Axis\" version=\"1.0\"/>"
                       "</mfDriverModule>");
        host.addModule("/mods/libAxis.so", []() -> IInterface* {
            return static_cast<IFunctionID*>(new RecordingDriver("driver"));
        });
    }
};

std::string nvramLine(const std::string& driverID) {
    sal::Path path("/wp/nvram");
    path.expand(driverID);
    return "mkdir " + path.getPathString();
}

/// The drivers for which the loader made a directory, as the journal has it.
std::vector<std::string> prepared(fakehost::Journal& journal) {
    std::vector<std::string> lines = journal.linesOf({"mkdir"});
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const std::string& line) { return !line.starts_with("mkdir /wp/nvram"); }),
                lines.end());
    return lines;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    silenceStandardOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Machine s_machine;
    fakehost::FakeHost& host = s_machine.host;
    host.journal().reset();
    host.loaded.clear();
    host.entries.clear();
    s_machine.file.write(data, size);
    const std::string path = s_machine.file.path();
    const XmlInput input = XmlInput::read(path);
    if (input.finding)
        return 0;
    TiXmlDocument document(path);
    static_cast<void>(loadXmlDocument(document));
    expect(nestingDepth(document) <= XmlInput::s_maxDepth, "no file is let through that nests too deep");
    const WorkplaceFile read(path, input);
    const std::vector<Finding> findings = ConfigurationCheck(read, {}, "/").forStart();
    if (std::any_of(findings.begin(), findings.end(), [](const Finding& each) { return each.isError(); }))
        return 0;

    std::vector<std::string> expected;
    for (const WorkplaceFile::Entry& entry : read.entries())
        if (entry.driverType == "Axis" && entry.version == "1.0")
            expected.push_back(nvramLine(entry.driverID));

    RecordingSystem system;
    MDMFidDistributor distributor;
    distributor.setSystemInterface(&system);
    MDMModuleHandler sut;
    sut.init();
    sut.setFidDistributor(&distributor);
    sut.searchMfDriver("/mods");
    host.journal().clear();
    const bool isComplete = sut.startMfDrivers(path);
    std::vector<std::string> started = prepared(host.journal());
    expect(started.size() <= expected.size() && std::equal(started.begin(), started.end(), expected.begin()),
           "the module starts what the host has read, in its order");
    if (isComplete)
        expect(started == expected, "a start that completes leaves no driver out");

    std::size_t reloads = 0;
    for (const WorkplaceFile::Entry& entry : read.entries()) {
        if (++reloads > g_mostReloads)
            break;
        if (read.entryFault(entry.driverID).empty())
            sut.reloadMfDriver(entry.driverID);
    }
    return 0;
}
