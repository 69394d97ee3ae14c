#include "DriverCallWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "LogCapture.h"
#include "TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class DriverCallWatchTest : public testing::Test {
protected:
    DriverCallWatchTest() { fs::current_path(m_directory.path()); }
    ~DriverCallWatchTest() override { fs::current_path(m_before); }

    const fs::path m_before = fs::current_path();
    TemporaryDirectory m_directory;
    LogCapture m_log;
    StateStore m_store;
    DriverTable m_drivers{m_store};
    // Made in the test's directory.
    std::unique_ptr<Surroundings> m_pSurroundings;
    DriverCallWatch& sut() {
        if (!m_pSut) {
            m_pSurroundings = std::make_unique<Surroundings>();
            m_pSut = std::make_unique<DriverCallWatch>(m_drivers, *m_pSurroundings);
        }
        return *m_pSut;
    }
    std::unique_ptr<DriverCallWatch> m_pSut;
};

TEST_F(DriverCallWatchTest, TellsTheRosterOfEachCall) {
    sut().callBegins("A", "setConfiguration");
    ASSERT_TRUE(m_drivers.oldestCall());
    EXPECT_EQ(m_drivers.oldestCall()->operation, "setConfiguration");
    sut().callEnded("A", "setConfiguration");
    EXPECT_FALSE(m_drivers.oldestCall());
    EXPECT_TRUE(m_drivers.isRunning("A"));
    sut().driverDeleted("A");
    EXPECT_FALSE(m_drivers.isRunning("A"));
}

TEST_F(DriverCallWatchTest, KnowsWhyAModuleWasNotLoadedUntilThatIsForgotten) {
    sut().loadFailed("/drivers/a.so", "file too short");
    EXPECT_EQ("", sut().loadFault("/drivers/b.so"));
    EXPECT_EQ("file too short", sut().loadFault("/drivers/a.so"));
    EXPECT_EQ("file too short", sut().loadFault("/drivers/a.so"));
    sut().forgetLoadFaults();
    EXPECT_EQ("", sut().loadFault("/drivers/a.so"));
}

TEST_F(DriverCallWatchTest, PutsBackWhatTheDriverHasChangedWhileItWasMade) {
    sut();
    fs::current_path("/");
    sut().callBegins("A", "setConfiguration");
    EXPECT_EQ(fs::current_path(), m_directory.path());
    EXPECT_THAT(m_log.finish(), HasSubstr("HOST: A or another driver has changed the working directory"));
}

TEST_F(DriverCallWatchTest, PutsBackWhatTheDriverHasChangedInACall) {
    sut().callBegins("A", "initializationCompleted");
    fs::current_path("/");
    sut().callEnded("A", "initializationCompleted");
    EXPECT_EQ(fs::current_path(), m_directory.path());
    EXPECT_THAT(m_log.finish(),
                HasSubstr("HOST: A: initializationCompleted() has changed the working directory"));
}

TEST_F(DriverCallWatchTest, PutsBackWhatTheDriverHasChangedAtItsEnd) {
    sut();
    fs::current_path("/");
    sut().driverDeleted("A");
    EXPECT_EQ(fs::current_path(), m_directory.path());
}

}  // namespace
