#include "FaultyDriver.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

#include "GarbageSender.h"
#include "ThreadName.h"

namespace {

constexpr const char* s_prefix = "FAULT.";
constexpr int s_most = 1000000;
constexpr std::size_t s_mebibyte = 1024 * 1024;

std::string textOf(const std::string& file) {
    std::ifstream stream(file);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

/// The file that this code was loaded from.
std::string moduleFile() {
    Dl_info info{};
    static const char s_here = 0;
    return ::dladdr(&s_here, &info) != 0 && info.dli_fname ? info.dli_fname : "";
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

}  // namespace

FaultyDriver::FaultyDriver() {
    m_complaints = m_plan.read(textOf(moduleFile() + ".faults"));
    if (const char* pText = std::getenv("MFD_FAULTS")) {
        const auto complaints = m_plan.read(pText);
        m_complaints.insert(m_complaints.end(), complaints.begin(), complaints.end());
    }
    m_plan.strike(FaultPlan::EStage::Load);
}

FaultyDriver::~FaultyDriver() {
    stopFloods();
    m_plan.strike(FaultPlan::EStage::Delete);
}

bool FaultyDriver::setConfiguration(int workplaceId, const std::string& driverID,
                                    const std::string& workingDirectory, const std::string& ipAddress,
                                    const std::string& networkAdapter, const std::string& virtualPanelAddress,
                                    const std::string& nvramDirectory) {
    MfdDriverBase::setConfiguration(workplaceId, driverID, workingDirectory, ipAddress, networkAdapter,
                                    virtualPanelAddress, nvramDirectory);
    const auto complaints = m_plan.read(textOf(nvramDirectory + "/faults.txt"));
    m_complaints.insert(m_complaints.end(), complaints.begin(), complaints.end());
    for (const std::string& complaint : std::exchange(m_complaints, {}))
        log(sal::LogOutput::eWarning, "the plan of faults: " + complaint);
    return m_plan.strike(FaultPlan::EStage::Configure);
}

bool FaultyDriver::initializationCompleted() {
    if (!m_plan.strike(FaultPlan::EStage::Start))
        return false;
    return showState();
}

bool FaultyDriver::deinitialize() {
    const bool succeeds = m_plan.strike(FaultPlan::EStage::Deinitialize);
    stopFloods();
    return succeeds;
}

bool FaultyDriver::showState() const {
    if (!panelState())
        return false;
    panelState()->setStateValueBool("READY", true);
    return true;
}

bool FaultyDriver::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    static const mfd::FunctionTable<FaultyDriver>::Function s_functions[] = {
        {"PING", &FaultyDriver::ping},
        {"REPORT", &FaultyDriver::report},
        {"FAULT.AT", &FaultyDriver::plan},
        {"FAULT.FILLSTORE", &FaultyDriver::fillStore},
        {"FAULT.FLOODFIDS", &FaultyDriver::floodFids},
        {"FAULT.FLOODSTATE", &FaultyDriver::floodState},
        {"FAULT.GARBAGE", &FaultyDriver::sendGarbage},
        {"FAULT.LEAK", &FaultyDriver::leak},
        {"FAULT.STOP", &FaultyDriver::stopAll},
    };
    const mfd::FunctionTable<FaultyDriver> functions(s_functions);
    const auto* pFunction = functions.find(fid);
    return pFunction ? (this->*pFunction->handler)(parameters) : strike(fid, parameters, functions.names());
}

bool FaultyDriver::strike(const std::string& fid, const FIDParameterList& parameters,
                          const std::string& known) const {
    std::string reason = "is unknown";
    if (fid.starts_with(s_prefix)) {
        const std::string word = lowerCase(fid.substr(std::string(s_prefix).size()));
        const bool isPrint = word == "print" || word == "printlog";
        const std::string value = parameters.value(word == "exit" ? "code" : isPrint ? "mib" : "ms");
        if (const auto fault = Fault::parse(value.empty() ? word : word + " " + value, reason)) {
            log(sal::LogOutput::eInfo, "as told: " + fault->text());
            sal::LogManager::getInstance()->flush();
            return fault->strike();
        }
    }
    return refuse(fid, reason + "; FIDs are " + known + ", " + s_prefix + " and a fault in capitals");
}

bool FaultyDriver::refuse(const std::string& fid, const std::string& reason) const {
    log(sal::LogOutput::eWarning, "\"" + fid + "\" does nothing: " + reason);
    return false;
}

int FaultyDriver::number(const FIDParameterList& parameters, const std::string& name, int fallback) {
    if (!parameters.contains(name))
        return fallback;
    const std::string text = parameters.value(name);
    int value = 0;
    const char* pEnd = text.data() + text.size();
    const auto [pStop, error] = std::from_chars(text.data(), pEnd, value);
    return error == std::errc() && pStop == pEnd && value >= 0 && value <= s_most ? value : -1;
}

bool FaultyDriver::ping(const FIDParameterList& parameters) const {
    if (!panelState())
        return false;
    panelState()->setStateValue("PONG", parameters.value("value"));
    return true;
}

bool FaultyDriver::report(const FIDParameterList& parameters) const {
    if (!panelState() || parameters.value("name").empty())
        return refuse("REPORT", "name must tell which value it is to show");
    panelState()->setStateValue(parameters.value("name"), parameters.value("value"));
    return true;
}

template <class Once>
bool FaultyDriver::startFlood(int count, Once once) const {
    const std::lock_guard lock(m_mutex);
    m_isFlooding = true;
    try {
        m_floods.emplace_back([this, count, once] {
            base::nameThread(configuration().driverID, "flood");
            for (int i = 1; m_isFlooding && (count == 0 || i <= count); ++i)
                once(i);
        });
    } catch (const std::system_error& error) {
        return refuse("flood", std::string("no thread: ") + error.what());
    }
    return true;
}

bool FaultyDriver::floodState(const FIDParameterList& parameters) const {
    const int count = number(parameters, "count", 0);
    if (count < 0 || !panelState())
        return refuse("FAULT.FLOODSTATE", "count must be a number from 0 (for ever) to a million");
    return startFlood(count, [this](int i) {
        panelState()->setStateValueInt("FLOOD", i);
        panelState()->triggerEvent("FLOODED", std::to_string(i));
    });
}

/// Of values, not of reports: each has a name of its own.
bool FaultyDriver::fillStore(const FIDParameterList& parameters) const {
    const int count = number(parameters, "count", 70000);
    if (count <= 0 || !panelState())
        return refuse("FAULT.FILLSTORE", "count must be a number from 1 to a million");
    return startFlood(count,
                      [this](int i) { panelState()->setStateValueInt("FILL" + std::to_string(i), i); });
}

bool FaultyDriver::floodFids(const FIDParameterList& parameters) const {
    const int count = number(parameters, "count", 0);
    const std::string fid = parameters.value("fid");
    if (count < 0 || fid.empty())
        return refuse("FAULT.FLOODFIDS",
                      "it takes fid=ID.FUNCTION and count, from 0 (for ever) to a million");
    return startFlood(count, [this, fid](int i) {
        FIDParameterList numbered;
        numbered.add("value", std::to_string(i));
        sendToDriver(fid, numbered);
    });
}

bool FaultyDriver::sendGarbage(const FIDParameterList& parameters) const {
    const int count = number(parameters, "count", 100);
    const int seed = number(parameters, "seed", 1);
    if (count < 0 || seed < 0)
        return refuse("FAULT.GARBAGE", "count and seed must be numbers from 0 to a million");
    if (!GarbageSender(static_cast<std::uint32_t>(seed)).send(configuration().driverID, count))
        return refuse("FAULT.GARBAGE", "only a driver in a process of its own has a queue for it");
    return true;
}

bool FaultyDriver::leak(const FIDParameterList& parameters) const {
    const int mebibytes = number(parameters, "mib", 0);
    const int descriptors = number(parameters, "descriptors", 0);
    if (mebibytes < 0 || descriptors < 0)
        return refuse("FAULT.LEAK", "mib and descriptors must be numbers from 0 to a million");
    const std::lock_guard lock(m_mutex);
    for (int i = 0; i < mebibytes; ++i)
        m_memory.emplace_back(s_mebibyte, 'x');
    for (int i = 0; i < descriptors; ++i) {
        const int descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (descriptor < 0)
            return refuse("FAULT.LEAK", "there are no more descriptors");
        m_descriptors.push_back(descriptor);
    }
    return true;
}

bool FaultyDriver::plan(const FIDParameterList& parameters) const {
    const auto complaints = m_plan.read(parameters.value("stage") + " " + parameters.value("fault"));
    return complaints.empty() || refuse("FAULT.AT", complaints.front());
}

bool FaultyDriver::stopAll(const FIDParameterList&) const {
    stopFloods();
    m_plan.clear();
    const std::lock_guard lock(m_mutex);
    m_memory.clear();
    for (const int descriptor : std::exchange(m_descriptors, {}))
        ::close(descriptor);
    return true;
}

void FaultyDriver::stopFloods() const {
    m_isFlooding = false;
    std::vector<std::thread> floods;
    {
        const std::lock_guard lock(m_mutex);
        floods.swap(m_floods);
    }
    for (std::thread& flood : floods)
        flood.join();
}
