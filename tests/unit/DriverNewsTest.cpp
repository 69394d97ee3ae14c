#include "DriverNews.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "HangGuard.h"
#include "LogCapture.h"

namespace {

using testing::ElementsAre;

class DriverNewsTest : public testing::Test {
protected:
    static DriverTable::Driver driver(const std::string& id, EDriverState state,
                                      const std::string& cause = {}) {
        DriverTable::Driver made;
        made.id = id;
        made.state = state;
        made.cause = cause;
        made.isAlive = state == EDriverState::Running || state == EDriverState::Hung;
        return made;
    }
    /// As "FID name=value, name=value", once there are that many.
    std::vector<std::string> sent(std::size_t count) {
        EXPECT_TRUE(eventually([&] {
            const std::lock_guard lock(m_mutex);
            return m_sent.size() >= count;
        }));
        m_sut.stop();
        const std::lock_guard lock(m_mutex);
        return m_sent;
    }

    std::mutex m_mutex;
    std::vector<std::string> m_sent;
    std::atomic<bool> m_isHeld = false;
    DriverNews m_sut{[this](const std::string& fid, const FIDParameterList& parameters) {
        m_isHeld.wait(true);
        const std::lock_guard lock(m_mutex);
        m_sent.push_back(fid + " " + parameters.value("id") + " " + parameters.value("state") + " " +
                         parameters.value("cause", "-"));
        return true;
    }};
};

}  // namespace

TEST_F(DriverNewsTest, PanelIsToldOfAllDriversAndThenOfEachChange) {
    m_sut.panelStarted({driver("A", EDriverState::Running), driver("B", EDriverState::Parked, "parked"),
                        driver("C", EDriverState::NotLoaded), driver("PANEL", EDriverState::Running)});
    m_sut.changed(driver("A", EDriverState::Waiting, "signal 9"));
    m_sut.changed(driver("C", EDriverState::Running));
    m_sut.changed(driver("C", EDriverState::Hung, "hung for 10 s"));
    EXPECT_THAT(sent(5), ElementsAre("PANEL.DRIVER A running -", "PANEL.DRIVER B parked parked",
                                     "PANEL.DRIVER A ended signal 9", "PANEL.DRIVER C running -",
                                     "PANEL.DRIVER C hung hung for 10 s"));
}

TEST_F(DriverNewsTest, StateThatAnOperatorSeesNoDifferenceInIsNoNews) {
    m_sut.panelStarted({driver("A", EDriverState::Running)});
    m_sut.changed(driver("A", EDriverState::Running));
    m_sut.changed(driver("A", EDriverState::Waiting, "signal 9"));
    m_sut.changed(driver("A", EDriverState::Due, "signal 9"));
    m_sut.changed(driver("A", EDriverState::Running, "signal 9"));
    EXPECT_THAT(sent(3), ElementsAre("PANEL.DRIVER A running -", "PANEL.DRIVER A ended signal 9",
                                     "PANEL.DRIVER A running -"));
}

TEST_F(DriverNewsTest, ReloadEndsTheFormerInstanceAndBeginsAnother) {
    const auto ofStart = [](DriverTable::Driver driver, std::uint64_t start) {
        driver.start = start;
        return driver;
    };
    m_sut.panelStarted({ofStart(driver("A", EDriverState::Running), 1)});
    m_sut.changed(ofStart(driver("A", EDriverState::Unloading), 1));
    m_sut.changed(ofStart(driver("A", EDriverState::Starting, "unloaded"), 1));
    m_sut.changed(ofStart(driver("A", EDriverState::Running, "unloaded"), 2));
    m_sut.changed(ofStart(driver("A", EDriverState::Running, "unloaded"), 3));
    m_sut.changed(ofStart(driver("B", EDriverState::Starting), 0));
    EXPECT_THAT(sent(4), ElementsAre("PANEL.DRIVER A running -", "PANEL.DRIVER A ended unloaded",
                                     "PANEL.DRIVER A running -", "PANEL.DRIVER A running -"));
}

TEST_F(DriverNewsTest, PanelThatIsNotThereIsToldNothing) {
    m_sut.changed(driver("A", EDriverState::Running));
    m_sut.panelStarted({});
    m_sut.changed(driver("PANEL", EDriverState::Unloading));
    m_sut.changed(driver("PANEL", EDriverState::Starting));
    m_sut.changed(driver("A", EDriverState::Ended, "exit code 3"));
    m_sut.panelStarted({driver("A", EDriverState::Ended, "exit code 3")});
    EXPECT_THAT(sent(1), ElementsAre("PANEL.DRIVER A ended exit code 3"));
}

TEST_F(DriverNewsTest, PanelThatTakesNothingLosesTheOldestWithOneLine) {
    LogCapture log;
    m_isHeld = true;
    m_sut.panelStarted({});
    for (std::size_t i = 0; i < DriverNews::s_capacity + 100; ++i)
        m_sut.changed(driver("A" + std::to_string(i), EDriverState::Running));
    m_isHeld = false;
    m_isHeld.notify_all();
    const auto all = sent(DriverNews::s_capacity);
    EXPECT_LE(all.size(), DriverNews::s_capacity + 1);
    EXPECT_EQ("PANEL.DRIVER A1099 running -", all.back());
    const std::string line = "PANEL: takes no news of the drivers; the oldest are dropped\n";
    const std::string text = log.finish();
    EXPECT_NE(std::string::npos, text.find(line));
    EXPECT_EQ(text.find(line), text.rfind(line));
}
