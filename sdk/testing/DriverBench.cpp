#include "mfd/testing/DriverBench.h"

#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "DirectSide.h"
#include "ProcessSide.h"
#include "Story.h"
#include "TestTime.h"
#include "mfd/LogPresence.h"
#include "sal/LogManager.h"

namespace mfd::testing {

namespace {

namespace fs = std::filesystem;

/// A variable of the environment for as long as the object lives; what it was before comes back.
class Variable {
public:
    Variable(const char* name, const std::string& value) : m_name(name) {
        if (const char* pFormer = ::getenv(name))
            m_former = pFormer;
        ::setenv(name, value.c_str(), 1);
    }
    ~Variable() {
        if (m_former)
            ::setenv(m_name, m_former->c_str(), 1);
        else
            ::unsetenv(m_name);
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* m_name;
    std::optional<std::string> m_former;
};

/// A directory that is gone with the object; nobody else can enter it.
class Directory {
public:
    explicit Directory(const fs::path& parent) {
        std::string pattern = parent / "mfd-testing-XXXXXX";
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("no directory of the test's own in " + parent.string());
        path = pattern;
    }
    ~Directory() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    fs::path path;
};

/// Shared memory, as the queues' directory is wherever there is one.
fs::path placeOfQueues() {
    return fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
}

std::atomic<bool> s_isThere{false};

/// At most one in the process: log, variables and observers are the process's.
class OnlyOne {
public:
    OnlyOne() {
        if (s_isThere.exchange(true))
            throw std::logic_error("there is a DriverBench already in this process");
    }
    ~OnlyOne() { s_isThere = false; }
    OnlyOne(const OnlyOne&) = delete;
    OnlyOne& operator=(const OnlyOne&) = delete;
};

}  // namespace

class DriverBench::Implementation : private sal::LogManager::Observer {
public:
    explicit Implementation(Settings given)
        : settings(std::move(given)), m_queues(placeOfQueues()), m_files(fs::temp_directory_path()) {
        if (settings.timeStandsStill)
            m_time.emplace(s_testTimeVariable, "stands still");
        if (!LogPresence::isThere())
            m_log.emplace();
        sal::LogManager::getInstance()->setObserver(this);
        fs::create_directories(nvram());
        fs::create_directories(work());
        if (settings.mode == EMode::InProcess)
            pSide = std::make_unique<DirectSide>(settings.module, story);
        else
            pSide =
                std::make_unique<ProcessSide>(settings.module, settings.wrapper, settings.patience, story);
    }
    ~Implementation() override {
        pSide.reset();
        sal::LogManager::getInstance()->setObserver(nullptr);
    }
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;

    std::string nvram() const { return m_files.path / "nvram" / settings.driverID; }
    std::string work() const { return m_files.path / "data" / settings.driverID; }

    const Settings settings;
    Story story;
    std::unique_ptr<IDriverSide> pSide;
    unsigned advances = 0;

private:
    void line(const std::string& output, int, const std::string& text) override {
        story.add("log " + output + ": " + text);
    }

    OnlyOne m_onlyOne;
    Directory m_queues;
    Directory m_files;
    Variable m_queueDirectory{"MFD_QUEUE_DIR", m_queues.path};
    std::optional<Variable> m_time;
    std::optional<sal::LogManager> m_log;
};

DriverBench::DriverBench(Settings settings)
    : m_pImplementation(std::make_unique<Implementation>(std::move(settings))) {}

DriverBench::~DriverBench() = default;

std::string DriverBench::start() {
    m_pImplementation->story.add("start");
    return m_pImplementation->pSide->start(
        {m_pImplementation->settings.driverID, m_pImplementation->work(), m_pImplementation->nvram()});
}

std::string DriverBench::stop() {
    m_pImplementation->story.add("stop");
    return m_pImplementation->pSide->stop();
}

std::string DriverBench::kill() {
    return m_pImplementation->pSide->kill();
}

std::string DriverBench::refuseFids(bool refused) {
    return m_pImplementation->pSide->refuseFids(refused);
}

bool DriverBench::isRunning() const {
    return m_pImplementation->pSide->isRunning();
}

bool DriverBench::send(const std::string& fid, const Parameters& parameters) {
    FIDParameterList list;
    for (const auto& [name, value] : parameters)
        list.add(name, value);
    m_pImplementation->story.addFid("FID", fid, list);
    return m_pImplementation->pSide->send(fid, list);
}

std::string DriverBench::advance(std::chrono::milliseconds time) {
    if (!m_pImplementation->settings.timeStandsStill)
        return "the driver's time does not stand still: it cannot be moved";
    const std::string number = std::to_string(++m_pImplementation->advances);
    FIDParameterList list;
    list.add("ms", std::to_string(time.count()));
    list.add("number", number);
    if (!m_pImplementation->pSide->send(s_advanceFunction, list))
        return "the driver takes no FIDs, or is no mfd::Driver";
    const std::string answer = std::string("event ") + s_advancedEvent + " " + number;
    Story& story = m_pImplementation->story;
    if (story.wait([&] { return story.count(answer) > 0; }, m_pImplementation->settings.patience))
        return {};
    return "the driver's thread is busy, or it is no mfd::Driver: its time was not moved";
}

std::string DriverBench::waitForState(const std::string& id, const std::optional<std::string>& value) const {
    const Story& story = m_pImplementation->story;
    const auto holds = [&] { return story.hasReported(id) && story.state(id) == value; };
    if (story.wait(holds, m_pImplementation->settings.patience))
        return {};
    const std::optional<std::string> now = story.state(id);
    return id + " is " + (now ? "\"" + *now + "\"" : "unset") + ", not " +
           (value ? "\"" + *value + "\"" : "unset");
}

std::string DriverBench::waitForLine(const std::string& line, std::size_t times) const {
    const Story& story = m_pImplementation->story;
    const auto holds = [&] { return story.count(line) >= times; };
    if (story.wait(holds, m_pImplementation->settings.patience))
        return {};
    return "\"" + line + "\" has come " + std::to_string(story.count(line)) + " times, not " +
           std::to_string(times);
}

std::string DriverBench::waitForLog(const std::string& text) const {
    const Story& story = m_pImplementation->story;
    const auto holds = [&] {
        const std::vector<std::string> lines = story.lines();
        return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
            return line.starts_with("log ") && line.find(text) != std::string::npos;
        });
    };
    return story.wait(holds, m_pImplementation->settings.patience)
               ? ""
               : "no line of the log has \"" + text + "\"";
}

std::optional<std::string> DriverBench::state(const std::string& id) const {
    return m_pImplementation->story.state(id);
}

std::size_t DriverBench::count(const std::string& line) const {
    return m_pImplementation->story.count(line);
}

std::string DriverBench::story() const {
    return m_pImplementation->story.text();
}

std::string DriverBench::nvramDirectory() const {
    return m_pImplementation->nvram();
}

}  // namespace mfd::testing
