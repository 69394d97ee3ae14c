#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "HangGuard.h"
#include "LinkFixture.h"
#include "LinkJudge.h"
#include "MqttLine.h"
#include "Rounds.h"

using testing::IsEmpty;

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr int s_brokerPort = 1883;
/// Of each site to the broker.
constexpr std::array s_linePorts{2001, 2002};
constexpr int s_values = 100;
constexpr auto s_expiry = 2s;
/// What a busy machine may add on the way from a link to the driver. A line is held for longer than both.
constexpr auto s_slack = 2s;
/// A site that was not heard for ten seconds is not there; then what it told last becomes stale.
constexpr auto s_longestLive = 10s + 4s;

std::int64_t nowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// Two hosts with a driver LinkTraffic each, whose lines to the broker can be held.
class LinkEndurance : public Link {
protected:
    void prepare() override {
        Link::prepare();
        if (IsSkipped() || HasFatalFailure())
            return;
        load(workplace(), "SITE2", s_linePorts[0]);
        load(*m_pOther, "SITE1", s_linePorts[1]);
        const std::filesystem::path directory = workplace().directory();
        writeFile(directory / "rights", "user SITE1\ntopic readwrite #\nuser SITE2\ntopic readwrite #\n");
        writeFile(directory / "broker.conf",
                  readFile(directory / "broker.conf") + "set_tcp_nodelay true\nmax_queued_messages 100000\n");
        giveMemory();
        for (const int port : s_linePorts)
            m_lines.push_back(std::make_unique<MqttLine>(port, s_brokerPort));
    }

    static void load(const TestWorkplace& place, const std::string& other, int port) {
        place.addModule("LinkTraffic");
        place.configure(TestWorkplace::entry("T", "LinkTraffic", "direct") +
                        TestWorkplace::entry(other, "Link", "direct"));
        std::filesystem::create_directories(place.workdir() / "data/T");
        const std::filesystem::path file = place.workdir() / "data" / other / "link.xml";
        std::string link = readFile(file);
        link = std::regex_replace(link, std::regex("driver='E'"), "driver='T'");
        link = std::regex_replace(link, std::regex("spread='0'"),
                                  "spread='0' expiry='" + std::to_string(s_expiry.count()) + "'");
        link = std::regex_replace(link, std::regex("host='127.0.0.1'"),
                                  "host='127.0.0.1' port='" + std::to_string(port) + "'");
        writeFile(file, link);
    }

    HostProcess& hostOf(int site) { return site == 0 ? host() : other(); }
    const TestWorkplace& placeOf(int site) { return site == 0 ? workplace() : *m_pOther; }
    static std::string farOf(int site) { return site == 0 ? "SITE2" : "SITE1"; }

    bool areUp() {
        for (const int site : {0, 1}) {
            if (!hostOf(site).repliesWith("state --now " + farOf(site) + ".LINK", "LINK +string +up "))
                return false;
        }
        return true;
    }
    /// From now on FIDs go both ways and values change.
    void go(int fids, int changes) {
        for (const int site : {0, 1})
            hostOf(site).type("sendFID T.GO far=" + farOf(site) + " fids=" + std::to_string(fids / 2) +
                              " changes=" + std::to_string(changes / 2));
    }
    /// The values of the far driver that are shown as live.
    std::vector<std::int64_t> live(int site, const std::string& pattern) {
        const std::string shown = hostOf(site).ask("state --now " + farOf(site) + ".T." + pattern);
        static const std::regex row("\\.T\\.K[0-9]+ +int +([0-9]+) +SITE[12] +[0-9]+ s +yes");
        std::vector<std::int64_t> values;
        for (std::sregex_iterator found(shown.begin(), shown.end(), row), end; found != end; ++found)
            values.push_back(std::stoll((*found)[1]));
        return values;
    }
    /// Nothing that is older than a link may show as live.
    void judgeLive() {
        for (const int site : {0, 1}) {
            const std::int64_t oldest =
                nowNs() / 1'000'000 -
                std::chrono::duration_cast<std::chrono::milliseconds>(s_longestLive).count();
            for (const std::int64_t value : live(site, "K?0")) {
                ++m_seenLive;
                // Those of a hold are small.
                if (value > 1'000'000 && value < oldest)
                    m_findings.push_back("a value is shown as live that is " +
                                         std::to_string(oldest - value) + " ms older than it may be");
            }
        }
    }
    void goOnFor(Clock::duration time) {
        for (const auto end = Clock::now() + time; Clock::now() < end;) {
            judgeLive();
            std::this_thread::sleep_for(300ms);
        }
    }
    /// Seconds until each value is the same on both sides; the hang guard where it never is.
    double untilEqual(int value) {
        const auto begin = Clock::now();
        for (const int site : {0, 1})
            hostOf(site).type("sendFID T.HOLD value=" + std::to_string(value));
        for (const int site : {0, 1}) {
            if (!eventually([&] {
                    const auto values = live(site, "K*");
                    return values.size() == s_values && std::all_of(values.begin(), values.end(),
                                                                    [&](auto each) { return each == value; });
                }))
                m_findings.push_back("the final values are not the same:\n" +
                                     hostOf(site).ask("state --now " + farOf(site) + ".*") + "\nthere:\n" +
                                     hostOf(1 - site).ask("state --now T.*") + "\nbroker:\n" +
                                     m_pBroker->log());
        }
        return secondsSince(begin);
    }
    void killHost(int site) {
        const std::string process = std::to_string(hostOf(site).pid());
        hostOf(site).signal(SIGKILL);
        hostOf(site).waitForEnd();
        m_killedAt[process] = nowNs();
        m_log += hostOf(site).log();
    }
    void startHost(int site) {
        site == 0 ? static_cast<void>(start()) : static_cast<void>(startOther());
        ASSERT_TRUE(hostOf(site).waitForLog("HOST: the workplace is started\n")) << hostOf(site).log();
        m_memory.erase(site);
    }
    void stopBroker() {
        m_pBroker->signal(SIGKILL);
        m_pBroker->waitForEnd();
    }
    /// In KiB.
    static double ownMemory(pid_t pid) {
        std::ifstream status("/proc/" + std::to_string(pid) + "/status");
        double size = 0;
        for (std::string word; status >> word;) {
            if (word == "RssAnon:")
                status >> size;
        }
        return size;
    }
    /// How much each has grown since it was first seen.
    void judgeMemory() {
        for (const int site : {0, 1}) {
            const double memory = ownMemory(hostOf(site).pid());
            const double grown = memory - m_memory.try_emplace(site, memory).first->second;
            m_grown = std::max(m_grown, grown);
        }
    }

    struct Fault {
        std::string name;
        std::function<void()> work;
    };
    /// Each ends with everything whole again.
    std::vector<Fault> faults() {
        std::vector<Fault> faults{
            {"broker killed, without memory",
             [this] {
                 stopBroker();
                 std::filesystem::remove(workplace().directory() / "mosquitto.db");
                 goOnFor(pause(500ms, 4s));
                 startBroker();
             }},
            {"broker killed, with memory",
             [this] {
                 killBrokerThatRemembers();
                 goOnFor(pause(500ms, 4s));
                 startBroker();
             }},
            {"broker stands still",
             [this] {
                 m_pBroker->signal(SIGSTOP);
                 goOnFor(pause(s_expiry + s_slack + 1s, 16s));
                 m_pBroker->signal(SIGCONT);
             }},
        };
        for (const int site : {0, 1}) {
            const std::string name = "SITE" + std::to_string(site + 1);
            faults.push_back({name + " killed", [this, site] {
                                  killHost(site);
                                  startHost(site);
                              }});
            using EWay = MqttLine::EWay;
            for (const auto& [word, ways] : {std::pair("cut", std::vector{EWay::ToBroker, EWay::FromBroker}),
                                             {"half open", {EWay::FromBroker}},
                                             {"mute", {EWay::ToBroker}}})
                faults.push_back({"line of " + name + " " + word, [this, site, ways = ways] {
                                      MqttLine& line = *m_lines[static_cast<std::size_t>(site)];
                                      for (const EWay way : ways)
                                          line.set(way, MqttLine::EState::Still);
                                      goOnFor(pause(s_expiry + s_slack + 1s, 16s));
                                      line.heal();
                                  }});
        }
        return faults;
    }
    Clock::duration pause(Clock::duration shortest, Clock::duration longest) {
        return Clock::duration(
            std::uniform_int_distribution<Clock::rep>(shortest.count(), longest.count())(m_random));
    }

    LinkJudge judge() {
        LinkJudge judge(s_expiry + s_slack);
        for (const int site : {0, 1}) {
            m_log += hostOf(site).log();
            for (const auto& file : std::filesystem::directory_iterator(placeOf(site).workdir() / "data/T")) {
                const std::string name = file.path().filename();
                const auto killed = m_killedAt.find(name.substr(7, name.rfind('-') - 7));
                judge.addLedger(readFile(file.path()),
                                killed == m_killedAt.end() ? std::nullopt : std::optional(killed->second));
            }
        }
        judge.addLog(m_log);
        return judge;
    }

    std::vector<std::unique_ptr<MqttLine>> m_lines;
    std::mt19937 m_random{std::random_device()()};
    std::map<std::string, std::int64_t> m_killedAt;  ///< by process
    std::string m_log;
    std::vector<std::string> m_findings;
    std::size_t m_seenLive = 0;
    std::map<int, double> m_memory;
    double m_grown = 0;
};

}  // namespace

/// Ten minutes under ./dev soak.
TEST_F(LinkEndurance, NothingIsDoneTwiceOrLateNobodyIsToldWronglyAndNothingStaleIsLiveEndurance) {
    const bool isLong = rounds(2) > 20;
    const int fids = isLong ? 1000 : 200;
    const int changes = isLong ? 10'000 : 2'000;
    startAll();
    std::vector<Fault> faults = this->faults();
    std::shuffle(faults.begin(), faults.end(), m_random);
    const auto begin = Clock::now();
    double traffic = 0;
    std::vector<double> equal;
    std::ostringstream steps;
    Rounds left(std::min(rounds(2), 60), 10min);
    for (std::size_t i = 0; left.goOn() && m_findings.empty() && !HasFatalFailure(); ++i) {
        const Fault& fault = faults[i % faults.size()];
        const auto from = Clock::now();
        go(fids, changes);
        goOnFor(2s);
        judgeMemory();
        fault.work();
        traffic += secondsSince(from);
        const auto healed = Clock::now();
        ASSERT_TRUE(areUp()) << fault.name << "\n" << host().log() << other().log();
        const double up = secondsSince(healed);
        equal.push_back(untilEqual(static_cast<int>(i) + 1));
        judgeMemory();
        steps << "  " << fault.name << ": up after " << up << " s, the same after " << equal.back()
              << " s more\n";
    }
    // The answers to the last FIDs.
    std::this_thread::sleep_for(s_expiry + 5s + s_slack);
    const LinkJudge judged = judge();
    const LinkJudge::Counts counts = judged.counts();
    std::cout << "Link scoreboard: " << secondsSince(begin) << " s, " << traffic
              << " s of them under traffic and faults\n"
              << steps.str() << "  FIDs: " << counts.sent << " sent ("
              << static_cast<double>(counts.sent) / traffic << "/s), " << counts.refusedAtOnce
              << " refused at once, " << counts.done << " done, the oldest after "
              << std::chrono::duration<double>(counts.oldest).count() << " s\n  told:";
    for (const auto& [outcome, count] : counts.outcomes)
        std::cout << " " << outcome << " " << count;
    std::cout << ", nothing (killed) " << counts.untold
              << "\n  values shown as live that were looked at: " << m_seenLive
              << "\n  a host's own memory has grown by " << m_grown << " KiB at most\n";
    EXPECT_THAT(judged.findings(), IsEmpty());
    EXPECT_THAT(m_findings, IsEmpty());
    EXPECT_GT(counts.done, 0U);
    EXPECT_GT(m_seenLive, 0U);
    // What was heard of each instance of the other site is kept for 256 of them.
    EXPECT_LT(m_grown, 16'384 + 1024 * static_cast<double>(m_killedAt.size()));
    other().closeInput();
    other().waitForEnd();
    end();
}

namespace {

constexpr const char* s_done = "S N1_1_1000\nO N1_1_1000 done\n";

std::vector<std::string> findingsOf(const std::string& sender, const std::string& receiver,
                                    const std::string& log = {}) {
    LinkJudge sut(1s);
    sut.addLedger(sender);
    sut.addLedger(receiver);
    sut.addLog(log);
    return sut.findings();
}

}  // namespace

TEST(LinkJudge, FidThatIsDoneOnceInTimeAndToldSoIsRight) {
    EXPECT_THAT(findingsOf(s_done, "X N1_1_1000 1000001000\n"), IsEmpty());
}

TEST(LinkJudge, EachWrongIsFound) {
    using testing::ElementsAre;
    EXPECT_THAT(findingsOf(s_done, "X N1_1_1000 2000\nX N1_1_1000 3000\n"),
                ElementsAre("N1_1_1000 was done twice"));
    EXPECT_THAT(findingsOf(s_done, "X N1_1_1000 1000001001\n"), ElementsAre("N1_1_1000 was done late"));
    EXPECT_THAT(findingsOf(s_done, ""), ElementsAre("N1_1_1000 was told that it was done, and it was not"));
    EXPECT_THAT(findingsOf("R N1_1_1000\n", "X N1_1_1000 2000\n"),
                ElementsAre("N1_1_1000 was told that it was not done, and it was"));
    EXPECT_THAT(findingsOf("S N1_1_1000\n", "X N1_1_1000 2000\n",
                           "warning SITE2: T.N1_1_1000: expired: it came after 6000 ms\n"),
                ElementsAre("N1_1_1000 was told that it was not done, and it was"));
    EXPECT_THAT(
        findingsOf("S N1_1_1000\n", "X N1_1_1000 2000\n", "SITE2: T.N1_1_1000 is not sent: no broker\n"),
        ElementsAre("N1_1_1000 was told that it was not done, and it was"));
    EXPECT_THAT(findingsOf("S N1_1_1000\n", "X N1_1_1000 2000\n"),
                ElementsAre("N1_1_1000 was not told what became of it"));
    EXPECT_THAT(findingsOf(s_done, "X N1_1_1000 2000\n", "SITE2: T.N1_1_1000: not known: no answer came\n"),
                ElementsAre("N1_1_1000 was told twice what became of it"));
}

TEST(LinkJudge, WhoWasKilledOrHasMissedEventsNeedNotHaveBeenTold) {
    LinkJudge killed(1s);
    killed.addLedger("S N1_1_1000\n", 2000);
    EXPECT_THAT(killed.findings(), IsEmpty());
    LinkJudge missed(1s);
    missed.addLedger("S N1_1_1000\nG 1\n");
    EXPECT_THAT(missed.findings(), IsEmpty());
    EXPECT_THAT(findingsOf("S N1_1_1000\n", "", "SITE2: T.N1_1_1000: not known: the line was cut\n"),
                IsEmpty());
}
