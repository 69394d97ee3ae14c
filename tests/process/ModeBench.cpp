#include "ModeBench.h"

#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "HangGuard.h"
#include "InterfaceIds.h"
#include "PrivateMachine.h"
#include "sal/MessageQueue.h"

namespace fs = std::filesystem;

ModeMachine::ModeMachine() : missing(PrivateMachine::enter()) {
    if (!missing.empty())
        return;
    static const bool s_hasAdapters = PrivateMachine::addAdapter("eth0", "192.0.2.10/24") &&
                                      PrivateMachine::addAdapter("eth1", "198.51.100.5/24");
    if (!s_hasAdapters)
        missing = "needs adapters of its own";
}

ModeBench::ModeBench() {
    unsetenv("MFD_TEST_ACTS");
}

void ModeBench::SetUp() {
    if (!missing.empty())
        GTEST_SKIP() << missing;
    fs::create_directories(directory / "drivers");
    fs::create_directories(workdir());
    std::ofstream(directory / "drivers/all.xml")
        << "<mfDriverModule><module_type name=\"Puppet.so\" type=\"Puppet\" version=\"1.0\"/>"
           "<module_type name=\"IsPanel.so\" type=\"Panel\" version=\"1.0\"/></mfDriverModule>";
    for (const char* name : {"Puppet", "IsPanel"})
        fs::copy_file(module(name), directory / "drivers" / (std::string(name) + ".so"));
    fs::current_path(workdir());

    sal::LogManager::getInstance()->setLevel(sal::LogOutput::eTrace);
    m_streams.emplace(*this);
    m_pSupervision = ModeSupervision::asAsked();
    m_pManager = std::make_unique<MfDriverManager>();
    m_pManager->init();
    m_pSender = dynamic_cast<IFunctionID*>(m_pManager->queryInterface(IID_IFunctionID));
    m_pConfiguration = dynamic_cast<IMDMConfiguration*>(m_pManager->queryInterface(IID_IMDMConfiguration));
    host.pSender = m_pManager->queryInterface(IID_IFunctionID);
    m_pManager->setSystemInterface(&host);
    m_pConfiguration->searchMfDriver(directory / "drivers");
    m_pManager->setVirtualPanelStateInterface(&host);
}

void ModeBench::TearDown() {
    end();
    for (const std::string& driverID : m_processes)
        EXPECT_TRUE(waitForRecord(driverID + " destroyed"));
    EXPECT_TRUE(eventually([] { return waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD; }))
        << "a driver's process has not ended";
    m_pSupervision.reset();
    EXPECT_TRUE(fs::is_empty(directory / "queues")) << "a queue has been left behind";
    std::fflush(stdout);
    sal::LogManager::getInstance()->flush();
    m_streams.reset();
    fs::current_path("/");
    if (HasFailure())
        std::cout << standardOutput() << log() << std::flush;
}

void ModeBench::acts(const std::string& text) {
    setenv("MFD_TEST_ACTS", text.c_str(), 1);
}

bool ModeBench::load(EInterfaceTypes mode, const std::string& driverID, const Entry& entry) {
    if (mode == EInterfaceTypes::Queue)
        expectEndOf(driverID);
    return m_pConfiguration->startMfDriver(entry.workplace, driverID, "Puppet", "1.0", entry.workingDirectory,
                                           entry.ipAddress, entry.networkAdapter, mode);
}

void ModeBench::configure(int workplace, const std::string& entries) const {
    std::ofstream(directory / "workplace.xml")
        << "<workplaces><workplace id=\"" << workplace << "\">" << entries << "</workplace></workplaces>";
}

std::string ModeBench::entry(EInterfaceTypes mode, const std::string& driverID,
                             const std::string& driverType) {
    return "<mainframeDriver driverID=\"" + driverID + "\" driverType=\"" + driverType +
           "\" version=\"1.0\" workingDirectory=\"data/" + driverID + "\" interfaceType=\"" +
           (mode == EInterfaceTypes::Queue ? "queue" : "direct") + "\"/>";
}

bool ModeBench::startWorkplace(int workplace, const std::string& entries) {
    configure(workplace, entries);
    const bool started = m_pConfiguration->startMfDrivers(directory / "workplace.xml");
    m_pManager->onMfDriversStarted();
    return started;
}

bool ModeBench::waitsUntilAttached() {
    const char* pSetting = std::getenv("MFD_TEST_START_WAIT");
    return pSetting && std::string(pSetting) == "attached";
}

void ModeBench::waitUntilUp() const {
    std::vector<std::string> queues;
    for (const std::string& driverID : m_processes)
        queues.push_back(driverID + "_INQ");
    EXPECT_TRUE(sal::MessageQueue::waitForReaders(queues, 0, 30000)) << "a driver's process has not come up";
}

bool ModeBench::reload(const std::string& driverID) {
    waitUntilUp();
    return m_pConfiguration->reloadMfDriver(driverID);
}

void ModeBench::end() {
    waitUntilUp();
    m_pManager.reset();
}

bool ModeBench::send(const std::string& fid, const Parameters& parameters) const {
    FIDParameterList list;
    for (const auto& [name, value] : parameters)
        list.add(name, value);
    return m_pSender->sendFID(fid, list);
}

std::vector<std::string> ModeBench::recordOf(const std::string& beginning) const {
    std::vector<std::string> result;
    for (const std::string& line : record())
        if (line.starts_with(beginning))
            result.push_back(line);
    return result;
}

std::string ModeBench::log() const {
    sal::LogManager::getInstance()->flush();
    std::string text;
    for (const std::string& line : standardError())
        text += line + "\n";
    return text;
}

bool ModeBench::waitForLog(const std::string& text) const {
    return eventually([&] { return log().find(text) != std::string::npos; });
}

bool ModeBench::eventually(const std::function<bool()>& condition) {
    return ::eventually(condition, std::chrono::milliseconds(1));
}

void ModeBench::open(const std::string& gate) const {
    std::ofstream(directory / gate) << "open";
}
