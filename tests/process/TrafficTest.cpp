// Drivers are loaded, unloaded and reloaded while all of them talk to each other and report state from many
// threads, in the host's process and in their own.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <string>

#include "InterfaceIds.h"
#include "ModeBench.h"
#include "Rounds.h"

namespace {

namespace fs = std::filesystem;

/// Takes what the drivers report: the newest numbers, and whether an event is missing between two.
class Panel : public IPanelState {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
    void setStateValue(const std::string&, const std::string&) override {}
    void setStateValueFloat(const std::string&, float) override {}
    void setStateValueInt(const std::string& id, int value) override {
        const std::lock_guard lock(m_mutex);
        m_numbers[id] = value;
    }
    void setStateValueBool(const std::string&, bool) override {}
    void unsetStateValue(const std::string&) override {}
    void triggerEvent(const std::string& id, const std::string& value) override {
        if (id.ends_with(".LOST")) {
            const std::lock_guard lock(m_mutex);
            m_broken += id + ": " + value + "\n";
            return;
        }
        const int number = std::stoi(value);
        const std::lock_guard lock(m_mutex);
        const auto last = m_events.find(id);
        if (last != m_events.end() && number != last->second + 1 && number != 0)
            m_broken += id + ": " + value + " behind " + std::to_string(last->second) + "\n";
        m_events[id] = number;
    }

    int number(const std::string& id) const {
        const std::lock_guard lock(m_mutex);
        const auto found = m_numbers.find(id);
        return found == m_numbers.end() ? -1 : found->second;
    }
    /// What of the events and of the drivers' FIDs was missing.
    std::string broken() const {
        const std::lock_guard lock(m_mutex);
        return m_broken;
    }

private:
    mutable std::mutex m_mutex;
    std::map<std::string, int> m_numbers;
    std::map<std::string, int> m_events;
    std::string m_broken;
};

std::size_t entriesOf(const char* directory) {
    const fs::directory_iterator entries(directory);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

/// How often files are mapped into this process.
std::size_t mappedFiles() {
    std::ifstream maps("/proc/self/maps");
    std::size_t count = 0;
    for (std::string line; std::getline(maps, line);)
        if (line.find(".so") != std::string::npos)
            ++count;
    return count;
}

class Traffic : public ModeBench {
protected:
    void SetUp() override {
        ModeBench::SetUp();
        if (IsSkipped())
            return;
        // Each has a file of its own, so that the code of one really goes.
        fs::create_directories(directory / "traffic");
        std::ofstream descriptor(directory / "traffic/traffic.xml");
        descriptor << "<mfDriverModule>";
        for (const char* driver : {"NEAR", "FAR", "SUBJECT"}) {
            descriptor << "<module_type name=\"" << driver << ".so\" type=\"" << driver
                       << "\" version=\"1.0\"/>";
            fs::copy_file(module("Traffic"), directory / "traffic" / (std::string(driver) + ".so"));
        }
        descriptor << "</mfDriverModule>" << std::flush;
        // What the panel driver writes for each FID would only slow everything down.
        unsetenv("MFD_TEST_RECORD");
        dynamic_cast<IMDMConfiguration*>(manager().queryInterface(IID_IMDMConfiguration))
            ->searchMfDriver(directory / "traffic");
        manager().setVirtualPanelStateInterface(&m_panel);
        setenv("MFD_TEST_TRAFFIC", "NEAR FAR SUBJECT", 1);
        // A line for each FID is not what this is about.
        sal::LogManager::getInstance()->setLevel(sal::LogOutput::eWarning);
    }
    void TearDown() override {
        ModeBench::TearDown();
        unsetenv("MFD_TEST_TRAFFIC");
    }

    /// Waits until NEAR and FAR have heard more of each other, and SUBJECT of both and they of SUBJECT.
    bool allGoOn() {
        const char* const ways[] = {"NEAR.HEARD.FAR",    "FAR.HEARD.NEAR",     "SUBJECT.HEARD.NEAR",
                                    "SUBJECT.HEARD.FAR", "NEAR.HEARD.SUBJECT", "FAR.HEARD.SUBJECT"};
        std::map<std::string, int> before;
        for (const char* way : ways)
            before[way] = m_panel.number(way);
        return eventually([&] {
            for (const char* way : ways)
                if (m_panel.number(way) == before[way])
                    return false;
            return true;
        });
    }

    /// Reloads the subject again and again in the midst of the traffic.
    void reloadUnderTraffic(EInterfaceTypes mode) {
        ASSERT_TRUE(startWorkplace(1, entry(EInterfaceTypes::Direct, "NEAR", "NEAR") +
                                          entry(EInterfaceTypes::Queue, "FAR", "FAR") +
                                          entry(mode, "SUBJECT", "SUBJECT")));
        ASSERT_TRUE(allGoOn());
        ASSERT_TRUE(reload("SUBJECT"));
        ASSERT_TRUE(allGoOn());
        const std::size_t descriptors = entriesOf("/proc/self/fd");
        const std::size_t threads = entriesOf("/proc/self/task");
        const std::size_t queues = entriesOf((directory / "queues").c_str());
        const std::size_t files = mappedFiles();
        for (int round = 1; round < rounds(); ++round)
            ASSERT_TRUE(reload("SUBJECT")) << "round " << round;
        EXPECT_TRUE(allGoOn());
        // A thread that ends, or one that just opens a file, is not seen twice.
        EXPECT_TRUE(eventually([&] { return entriesOf("/proc/self/fd") <= descriptors; }));
        EXPECT_TRUE(eventually([&] { return entriesOf("/proc/self/task") <= threads; }));
        EXPECT_EQ(entriesOf((directory / "queues").c_str()), queues);
        EXPECT_EQ(mappedFiles(), files);
        end();
        EXPECT_EQ(m_panel.broken(), "") << "something was lost";
    }

    Panel m_panel;
};

}  // namespace

TEST_F(Traffic, EnduranceADirectDriverIsReloadedAndNothingOfOthersIsLost) {
    reloadUnderTraffic(EInterfaceTypes::Direct);
}

TEST_F(Traffic, EnduranceAProcessDriverIsReloadedAndNothingOfOthersIsLost) {
    reloadUnderTraffic(EInterfaceTypes::Queue);
}
