#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "DriverTable.h"
#include "HostLog.h"
#include "LogCapture.h"
#include "Rounds.h"

namespace {

using namespace std::chrono_literals;

constexpr unsigned int c_limit = 2;  ///< of tries in a row
const std::vector<std::string> c_ids{"A", "B"};

/// The host's error lines of this thread, at once and without the log's own thread.
class ErrorLines {
public:
    ErrorLines() : m_stream(hostLog(sal::LogOutput::eError)), m_pBefore(m_stream.rdbuf(&m_buffer)) {}
    ~ErrorLines() { m_stream.rdbuf(m_pBefore); }
    ErrorLines(const ErrorLines&) = delete;
    ErrorLines& operator=(const ErrorLines&) = delete;

    std::string take() {
        std::string text = m_buffer.str();
        if (!text.empty())
            m_buffer.str({});
        return text;
    }

private:
    std::ostream& m_stream;
    std::stringbuf m_buffer;
    std::streambuf* const m_pBefore;
};

/// What should be known of one driver.
struct Known {
    EDriverState state = EDriverState::NotLoaded;
    bool isAlive = false;
    bool isHung = false;
    bool isByHand = false;
    bool isQueue = false;
    bool isOwnRestart = false;
    int pid = 0;
    std::uint64_t start = 0;
    unsigned int restarts = 0;
    unsigned int tries = 0;
    std::string cause;
    std::string saidCause;
    std::string parkCause;
};

/// What should be known of one driver's value, whatever becomes of the driver.
struct Value {
    std::uint64_t starts = 0;
    std::string endCause;
    bool isThere = false;
    std::string staleCause;

    void end(const std::string& cause) {
        endCause = cause;
        if (isThere && staleCause.empty())
            staleCause = cause;
    }
};

/// The table in few words: each operation written as what it means, without a table of states.
class Model {
public:
    explicit Model(bool plans) : m_plans(plans) { drivers["PANEL"]; }

    std::map<std::string, Known> drivers;
    std::map<std::string, Value> values;
    std::string refusal;  ///< the line of the last operation; empty where it was none

    bool knows(const std::string& id) const { return drivers.contains(id); }

    void beginStart(const std::string& id) {
        Known& driver = drivers[id];
        driver.tries = 0;
        driver.isOwnRestart = false;
        driver.saidCause.clear();
        driver.state = driver.isAlive ? EDriverState::Unloading : EDriverState::Starting;
    }
    bool beginRestart(const std::string& id) {
        if (!knows(id) || drivers[id].state != EDriverState::Due)
            return false;
        drivers[id].state = EDriverState::Starting;
        drivers[id].isOwnRestart = true;
        return true;
    }
    bool begins(const std::string& id, int pid, bool isByHand) {
        Known& driver = drivers[id];
        if (isParkedOrParking(driver)) {
            refuse(id, "an instance begins", driver);
            return false;
        }
        if (driver.isAlive)
            values[id].end("unloaded");
        driver.state = EDriverState::Running;
        driver.isAlive = true;
        driver.isHung = false;
        driver.pid = pid;
        driver.saidCause.clear();
        driver.isByHand = isByHand;
        if (pid > 0)
            driver.isQueue = true;
        driver.start = ++values[id].starts;
        values[id].endCause.clear();
        const bool isOwn = driver.isOwnRestart;
        driver.isOwnRestart = false;
        return isOwn;
    }
    struct End {
        std::size_t stale;
        bool wasAsked;
        bool isPlanned;
    };
    std::optional<End> ends(const std::string& id, int pid, const std::string& cause, bool wasLong,
                            bool isPlanned) {
        if (!knows(id) || !drivers[id].isAlive || drivers[id].pid != pid)
            return std::nullopt;
        Known& driver = drivers[id];
        End end{isLive(id), isParkedOrParking(driver) || driver.state == EDriverState::Unloading, false};
        if (driver.state == EDriverState::Unloading) {
            driver.state = EDriverState::Starting;
        } else if (!end.wasAsked) {
            if (wasLong && isPlanned && m_plans)
                driver.tries = 0;
            end.isPlanned = isPlanned && m_plans && driver.tries < c_limit;
            if (end.isPlanned)
                ++driver.tries;
            driver.state = end.isPlanned ? EDriverState::Waiting : EDriverState::Ended;
        }
        driver.isAlive = false;
        driver.isHung = false;
        setCause(driver, cause);
        values[id].end(driver.cause);
        return end;
    }
    std::optional<std::size_t> hangs(const std::string& id, int pid, const std::string& cause) {
        if (!knows(id) || !drivers[id].isAlive || drivers[id].pid != pid)
            return std::nullopt;
        Known& driver = drivers[id];
        const std::size_t stale = isLive(id);
        if (driver.state == EDriverState::Running)
            driver.state = EDriverState::Hung;
        driver.isHung = true;
        setCause(driver, cause);
        values[id].end(driver.cause);
        return stale;
    }
    void endStart(const std::string& id) {
        Known& driver = drivers[id];
        driver.isOwnRestart = false;
        if (driver.state == EDriverState::Starting)
            driver.state = EDriverState::NotLoaded;
        if (driver.state == EDriverState::Unloading)
            driver.state = driver.isHung ? EDriverState::Hung : EDriverState::Running;
    }
    struct Missing {
        bool isNews;
        bool isPlanned;
    };
    std::optional<Missing> endProcessStart(const std::string& id, const std::string& cause, bool isTried) {
        Known& driver = drivers[id];
        if (driver.state != EDriverState::Starting) {
            endStart(id);
            return std::nullopt;
        }
        driver.isOwnRestart = false;
        driver.pid = 0;
        driver.cause = cause;
        const bool isPlanned = m_plans && (!isTried || driver.tries < c_limit);
        if (isPlanned && isTried)
            ++driver.tries;
        driver.state = isPlanned ? EDriverState::Waiting : EDriverState::Ended;
        const bool isNews = driver.saidCause != cause || !isPlanned;
        driver.saidCause = cause;
        values[id].end(cause);
        return Missing{isNews, isPlanned};
    }
    void giveUp(const std::string& id) {
        Known& driver = drivers[id];
        switch (driver.state) {
            case EDriverState::Starting:
            case EDriverState::Waiting:
            case EDriverState::Due:
            case EDriverState::Ended:
                driver.state = EDriverState::Ended;
                driver.isOwnRestart = false;
                return;
            default:
                refuse(id, "it is given up", driver);
        }
    }
    void beginParking(const std::string& id, const std::string& cause) {
        Known& driver = drivers[id];
        driver.state = EDriverState::Parking;
        driver.parkCause = cause;
        driver.tries = 0;
        driver.isOwnRestart = false;
    }
    void endParking(const std::string& id) {
        Known& driver = drivers[id];
        if (driver.state != EDriverState::Parking) {
            refuse(id, "the parking is over", driver);
            return;
        }
        driver.state = EDriverState::Parked;
        driver.cause = driver.parkCause;
        values[id].end(driver.cause);
        if (values[id].isThere)
            values[id].staleCause = driver.cause;
    }
    std::vector<std::string> takeDue() {
        std::vector<std::string> due;
        for (auto& [id, driver] : drivers) {
            if (driver.state != EDriverState::Waiting)
                continue;
            driver.state = EDriverState::Due;
            due.push_back(id);
        }
        return due;
    }
    void configure(const std::vector<WorkplaceFile::Entry>& entries, bool isWhole) {
        std::map<std::string, Known> left;
        for (const auto& [id, driver] : drivers) {
            const bool isParked =
                driver.state == EDriverState::Parking || driver.state == EDriverState::Parked;
            if (!isWhole || driver.isAlive || isParked || id == "PANEL")
                left[id] = driver;
        }
        for (const auto& entry : entries) {
            left[entry.driverID] = drivers[entry.driverID];
            left[entry.driverID].isQueue = entry.interfaceType == EInterfaceTypes::Queue;
        }
        drivers = left;
    }
    void report(const std::string& id) {
        values[id].isThere = true;
        values[id].staleCause = values[id].endCause;
    }
    bool isLive(const std::string& id) { return values[id].isThere && values[id].staleCause.empty(); }

private:
    static bool isParkedOrParking(const Known& driver) {
        return driver.state == EDriverState::Parking || driver.state == EDriverState::Parked;
    }
    static void setCause(Known& driver, const std::string& cause) {
        driver.cause = isParkedOrParking(driver) ? driver.parkCause : cause;
    }
    void refuse(const std::string& id, const std::string& event, const Known& driver) {
        static const std::map<EDriverState, std::string> words{{EDriverState::NotLoaded, "not loaded"},
                                                               {EDriverState::Running, "running"},
                                                               {EDriverState::Hung, "hung"},
                                                               {EDriverState::Unloading, "unloading"},
                                                               {EDriverState::Parking, "parking"},
                                                               {EDriverState::Parked, "parked"},
                                                               {EDriverState::Starting, "starting"},
                                                               {EDriverState::Waiting, "waiting"},
                                                               {EDriverState::Due, "due"},
                                                               {EDriverState::Ended, "ended"}};
        refusal = id + ": \"" + event + "\" is ignored: the driver is " + words.at(driver.state) + "\n";
    }

    const bool m_plans;
};

/// One sequence of operations on a table and on the model.
class Sequence {
public:
    Sequence(std::mt19937& random, ErrorLines& lines, bool plans)
        : m_random(random),
          m_lines(lines),
          m_model(plans),
          m_pTable(std::make_unique<DriverTable>(m_store, plans ? std::optional(settings()) : std::nullopt)) {
        m_pTable->setFollower([this](const DriverTable::Driver& driver) { follow(driver); });
    }

    void run() {
        for (int steps = 1 + below(12); steps > 0; --steps) {
            m_model.refusal.clear();
            m_told.clear();
            step();
            compare();
            if (testing::Test::HasFailure()) {
                ADD_FAILURE() << "after" << m_said.str();
                return;
            }
        }
    }
    /// How many operations of the sequence were refused.
    int refused() const { return m_refused; }
    const std::map<std::string, Known>& drivers() const { return m_model.drivers; }

private:
    static RestartPlan::Settings settings() {
        return {.firstDelay = 100ms, .limit = c_limit, .random = [] { return 0.5; }};
    }
    int below(int limit) { return static_cast<int>(m_random() % static_cast<unsigned>(limit)); }
    bool perhaps() { return below(2) == 0; }
    std::ostream& say(const char* operation, const std::string& id) {
        return m_said << "\n  " << operation << " " << id;
    }
    /// That of the process that runs, of one before, or of nobody.
    int somePid(const std::string& id) {
        const auto driver = m_model.drivers.find(id);
        if (driver != m_model.drivers.end() && below(4) > 0)
            return driver->second.pid;
        return below(m_lastPid + 2);
    }

    void step() {
        const std::string& id = c_ids.at(below(4) == 0 ? 1 : 0);
        // The command thread asks first; other threads tell of drivers that may have gone meanwhile.
        switch (const bool isKnown = m_model.knows(id); isKnown ? below(18) : below(10)) {
            case 0:
                say("beginStart", id);
                m_pTable->beginStart(id);
                return m_model.beginStart(id);
            case 1:
                say("beginRestart", id);
                EXPECT_EQ(m_model.beginRestart(id), m_pTable->beginRestart(id));
                return;
            case 2:
            case 3: {
                const bool isByHand = below(4) == 0;
                say("processStarted", id) << " " << ++m_lastPid;
                EXPECT_EQ(m_model.begins(id, m_lastPid, isByHand),
                          m_pTable->processStarted(id, m_lastPid, isByHand));
                return;
            }
            case 4:
                return end(id);
            case 5: {
                const int pid = somePid(id);
                say("processHung", id) << " " << pid;
                EXPECT_EQ(m_model.hangs(id, pid, "hung"), m_pTable->processHung(id, pid, "hung"));
                return;
            }
            case 6:
                return configure();
            case 7:
                say("callBegins", id);
                m_pTable->callBegins(id, "setConfiguration");
                m_pTable->callEnded(id, "setConfiguration");
                m_model.begins(id, 0, false);
                return;
            case 8:
                say("driverDeleted", id);
                m_pTable->driverDeleted(id);
                m_model.ends(id, 0, "unloaded", false, false);
                return;
            case 9:
                return takeDue();
            case 10:
                say("endStart", id);
                m_pTable->endStart(id);
                return m_model.endStart(id);
            case 11:
                return endProcessStart(id);
            case 12:
                say("giveUp", id);
                m_pTable->giveUp(id);
                return m_model.giveUp(id);
            case 13: {
                const std::string cause = perhaps() ? "parked" : "in maintenance";
                say("beginParking", id);
                m_pTable->beginParking(id, cause);
                return m_model.beginParking(id, cause);
            }
            case 14:
                say("endParking", id);
                m_pTable->endParking(id);
                return m_model.endParking(id);
            case 15:
                m_pTable->addRestart(id);
                ++m_model.drivers[id].restarts;
                return;
            case 16:
                return end(id);
            default:
                say("report", id);
                m_store.setStateValueInt(id + ".X", 1);
                return m_model.report(id);
        }
    }
    void end(const std::string& id) {
        const int pid = somePid(id);
        const bool wasLong = below(8) == 0;
        const bool isPlanned = below(4) > 0;
        const std::string cause = "exit code " + std::to_string(below(3));
        say("processEnded", id) << " " << pid << (isPlanned ? " planned" : "") << (wasLong ? " long" : "");
        const auto expected = m_model.ends(id, pid, cause, wasLong, isPlanned);
        const auto end = m_pTable->processEnded(id, pid, cause, wasLong ? 2min : 0ms, isPlanned);
        ASSERT_EQ(expected.has_value(), end.has_value());
        if (!expected)
            return;
        EXPECT_EQ(expected->stale, end->staleValues);
        EXPECT_EQ(expected->wasAsked, end->wasAsked);
        EXPECT_EQ(expected->isPlanned, end->next.delay.has_value());
    }
    void endProcessStart(const std::string& id) {
        const std::string cause = below(3) > 0 ? "never started" : "no room";
        const bool isTried = below(3) > 0;
        say("endProcessStart", id) << (isTried ? " tried" : "");
        const auto expected = m_model.endProcessStart(id, cause, isTried);
        const auto missing = m_pTable->endProcessStart(id, cause, isTried);
        ASSERT_EQ(expected.has_value(), missing.has_value());
        if (!expected)
            return;
        EXPECT_EQ(expected->isNews, missing->isNews);
        EXPECT_EQ(expected->isPlanned, missing->next.delay.has_value());
    }
    void configure() {
        std::vector<WorkplaceFile::Entry> entries;
        const bool isWhole = below(4) > 0;
        for (const std::string& id : c_ids) {
            if (perhaps())
                continue;
            WorkplaceFile::Entry entry;
            entry.driverID = id;
            entry.interfaceType = perhaps() ? EInterfaceTypes::Queue : EInterfaceTypes::Direct;
            entries.push_back(entry);
            say("configure", id) << (isWhole ? " whole" : "");
        }
        m_pTable->configure(entries, isWhole);
        m_model.configure(entries, isWhole);
    }
    void takeDue() {
        // Nobody's time has come before now.
        if (below(4) == 0) {
            EXPECT_EQ(std::vector<std::string>(), m_pTable->takeDue(DriverTable::Clock::now() - 1h));
            return;
        }
        say("takeDue", {});
        EXPECT_EQ(m_model.takeDue(), m_pTable->takeDue(DriverTable::Clock::now() + 1h));
    }
    void follow(const DriverTable::Driver& driver) { m_told[driver.id] = driver; }

    void compare() {
        const std::string line = m_lines.take();
        EXPECT_EQ(m_model.refusal, line);
        m_refused += line.empty() ? 0 : 1;
        const auto drivers = m_pTable->drivers();
        ASSERT_EQ(m_model.drivers.size(), drivers.size());
        bool isOneWaiting = false;
        auto expected = m_model.drivers.begin();
        std::erase_if(m_before, [&](const auto& item) { return !m_model.knows(item.first); });
        for (const DriverTable::Driver& driver : drivers) {
            compare(expected->first, expected->second, driver);
            isOneWaiting = isOneWaiting || driver.state == EDriverState::Waiting;
            ++expected;
        }
        EXPECT_EQ(isOneWaiting, m_pTable->nextDue().has_value());
        for (auto& [id, value] : m_model.values) {
            const auto entry = m_store.find(id + ".X");
            ASSERT_EQ(value.isThere, entry.has_value()) << id;
            if (entry) {
                ASSERT_EQ(value.staleCause, entry->staleCause) << id;
            }
        }
    }
    void compare(const std::string& id, const Known& expected, const DriverTable::Driver& driver) {
        ASSERT_EQ(id, driver.id);
        EXPECT_EQ(expected.state, driver.state) << id << " is " << inWords(driver.state);
        EXPECT_EQ(expected.isAlive, driver.isAlive) << id;
        EXPECT_EQ(expected.pid, driver.pid) << id;
        EXPECT_EQ(expected.start, driver.start) << id;
        EXPECT_EQ(expected.isByHand, driver.isByHand) << id;
        EXPECT_EQ(expected.cause, driver.cause) << id;
        EXPECT_EQ(expected.restarts, driver.restarts) << id;
        if (id != "PANEL" && driver.interfaceType != EInterfaceTypes::None) {
            EXPECT_EQ(expected.isQueue, driver.interfaceType == EInterfaceTypes::Queue) << id;
        }
        holds(driver);
        wasToldOf(driver);
    }
    /// The follower was told of a change of the state, and of nothing that was so only for a moment.
    void wasToldOf(const DriverTable::Driver& driver) {
        const auto told = m_told.find(driver.id);
        const auto before = m_before.find(driver.id);
        const auto stateBefore = before == m_before.end() ? EDriverState::NotLoaded : before->second;
        if (stateBefore != driver.state) {
            ASSERT_NE(told, m_told.end()) << driver.id << " is " << inWords(driver.state);
        }
        m_before[driver.id] = driver.state;
        if (told == m_told.end())
            return;
        EXPECT_EQ(driver.state, told->second.state) << driver.id;
        EXPECT_EQ(driver.isAlive, told->second.isAlive) << driver.id << " is " << inWords(driver.state);
        EXPECT_EQ(driver.pid, told->second.pid) << driver.id << " is " << inWords(driver.state);
        EXPECT_EQ(driver.isByHand, told->second.isByHand) << driver.id;
        EXPECT_EQ(driver.start, told->second.start) << driver.id << " is " << inWords(driver.state);
        EXPECT_EQ(driver.cause, told->second.cause) << driver.id << " is " << inWords(driver.state);
        EXPECT_EQ(driver.nextTry, told->second.nextTry) << driver.id;
    }
    /// What is so in each state, whatever led there.
    void holds(const DriverTable::Driver& driver) {
        switch (driver.state) {
            case EDriverState::Running:
            case EDriverState::Hung:
            case EDriverState::Unloading:
                EXPECT_TRUE(driver.isAlive) << driver.id << " is " << inWords(driver.state);
                break;
            case EDriverState::Parking:
            case EDriverState::Parked:
                break;
            default:
                EXPECT_FALSE(driver.isAlive) << driver.id << " is " << inWords(driver.state);
        }
        const bool isPlanned = driver.state == EDriverState::Waiting || driver.state == EDriverState::Due;
        EXPECT_EQ(isPlanned, driver.nextTry.has_value()) << driver.id << " is " << inWords(driver.state);
        const auto entry = m_store.find(driver.id + ".X");
        if (entry && driver.start > 0 && !driver.isAlive) {
            EXPECT_TRUE(entry->isStale()) << driver.id << " is " << inWords(driver.state);
        }
        if (entry && driver.state == EDriverState::Hung) {
            EXPECT_TRUE(entry->isStale()) << driver.id << " hangs";
        }
    }

    std::mt19937& m_random;
    ErrorLines& m_lines;
    StateStore m_store;
    Model m_model;
    std::map<std::string, EDriverState> m_before;
    std::map<std::string, DriverTable::Driver> m_told;  ///< during the last operation
    std::unique_ptr<DriverTable> m_pTable;
    int m_lastPid = 0;
    int m_refused = 0;
    std::ostringstream m_said;
};

}  // namespace

TEST(DriverTableModel, EnduranceAnySequenceLeavesTheTableAsTheModelSays) {
    constexpr int sequencesARound = 20'000;
    LogCapture log;
    ErrorLines lines;
    std::mt19937 random(20261122);
    int refused = 0;
    std::map<EDriverState, int> reached;
    for (int i = 0; i < rounds() * sequencesARound; ++i) {
        Sequence sequence(random, lines, i % 4 != 0);
        sequence.run();
        ASSERT_FALSE(HasFailure()) << "sequence " << i;
        refused += sequence.refused();
        for (const auto& [id, driver] : sequence.drivers())
            ++reached[driver.state];
    }
    // The sequences meet what they are to meet.
    EXPECT_GT(refused, 100);
    EXPECT_EQ(10u, reached.size());
}
