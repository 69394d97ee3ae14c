#include <signal.h>

#include <chrono>
#include <map>
#include <set>
#include <thread>

#include "HttpClient.h"
#include "RecordedWorkplace.h"
#include "Rounds.h"
#include "StreamReader.h"
#include "StreamText.h"

using namespace std::chrono_literals;
using EResult = stream::IStreamReader::EResult;
using testing::HasSubstr;

/// One driver floods values and events, one lines, one FIDs that are refused; E and F, to whom nothing of
/// that is to matter, send each other FIDs, and D is killed again and again.
class RecordingOfAFlood : public RecordedWorkplace {
protected:
    void prepare() override {
        RecordedWorkplace::prepare();
        for (const char* pModule : {"FloodsState", "Talks", "Traffic", "Echo"})
            workplace().addModule(pModule);
        workplace().configure(entry("VALUES", "queue", "FloodsState") + entry("LINES", "queue", "Talks") +
                              entry("FIDS", "queue", "Traffic") + entry("E", "direct") + entry("F", "queue") +
                              entry("D", "queue", "Talks"));
    }
    HostProcess& startFlood() {
        HostProcess::Start start = call({"--record-size", "4M", "--control", socket(), "--restart-delay",
                                         "0.1", "--restart-limit", "1000000"});
        start.environment["MFD_TEST_TRAFFIC"] = "E";
        return this->start(start);
    }

    /// Follows the ring of all but values, on a thread of its own.
    class Follower {
    public:
        explicit Follower(const std::string& ring) {
            std::string error;
            m_pSource = stream::StreamSource::open(ring, error);
            EXPECT_NE(m_pSource, nullptr) << error;
            m_pReader = stream::StreamReader::open(*m_pSource,
                                                   stream::StreamCursor::oldest(stream::ERing::Audit), error);
            EXPECT_NE(m_pReader, nullptr) << error;
            m_thread = std::thread([this] { follow(); });
        }
        ~Follower() { stop(); }
        void stop() {
            m_isStopping = true;
            if (m_thread.joinable())
                m_thread.join();
        }
        /// How often there was such a line, without its time.
        std::size_t count(const std::string& line) {
            const std::lock_guard lock(m_mutex);
            const auto found = m_lines.find(line);
            return found == m_lines.end() ? 0 : found->second;
        }
        bool wasLapped() const { return m_wasLapped; }
        /// Who has had its share.
        std::set<std::string> refused() {
            const std::lock_guard lock(m_mutex);
            return m_refused;
        }

    private:
        void follow() {
            for (bool isLast = false; !isLast;) {
                isLast = m_isStopping;
                EResult result = EResult::Nothing;
                while ((result = m_pReader->next(std::chrono::steady_clock::now())) == EResult::Record ||
                       result == EResult::Gap)
                    take(result);
                std::this_thread::sleep_for(5ms);
            }
        }
        void take(EResult result) {
            if (result == EResult::Gap) {
                m_wasLapped = m_wasLapped || m_pReader->gap().reason == stream::StreamGap::EReason::Lapped;
                return;
            }
            const auto& record = m_pReader->record();
            const std::string driverID = m_pReader->names().driver(record.driver());
            if (record.kind == stream::EKind::Counts &&
                stream::textOf(record, m_pReader->names()).find("refused ") != std::string::npos) {
                const std::lock_guard lock(m_mutex);
                m_refused.insert(driverID);
            }
            if (driverID == "VALUES" || driverID == "LINES" || driverID == "FIDS")
                return;
            const std::string line = stream::lineOf(record, m_pReader->names());
            const std::lock_guard lock(m_mutex);
            ++m_lines[line.substr(line.find(' ') + 1)];
        }

        std::unique_ptr<stream::StreamSource> m_pSource;
        std::unique_ptr<stream::StreamReader> m_pReader;
        std::atomic<bool> m_isStopping = false;
        std::atomic<bool> m_wasLapped = false;
        std::mutex m_mutex;
        std::map<std::string, std::size_t> m_lines;
        std::set<std::string> m_refused;
        std::thread m_thread;
    };
};

TEST_F(RecordingOfAFlood, HasAllThatTheOthersDoEndurance) {
    HostProcess& host = startFlood();
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started\n")) << host.log();
    ASSERT_THAT(rings(), testing::SizeIs(1));
    Follower follower(rings().front());
    HttpClient client(socket());
    const auto ask = [&](const std::string& path, const std::string& body) {
        const auto answer = client.ask(post(path, body));
        EXPECT_EQ(answer.status, 200) << body << ": " << answer.body;
    };
    const auto expect = [&](const std::string& line) {
        EXPECT_TRUE(eventually([&] { return follower.count(line) > 0; })) << line << '\n' << host.log();
    };
    // 500 rounds are some ten minutes.
    for (int round = 1; round <= rounds(3) && !HasFailure(); ++round) {
        const std::string number = std::to_string(round);
        ask("/api/v1/fid", R"({"fid":"LINES.FLOOD","parameters":{"value":"1000"}})");
        ask("/api/v1/fid", R"({"fid":"E.PING","parameters":{"fid":"F.INT","name":"N","value":")" + number +
                               R"("},"wait":"delivered","timeoutMs":60000})");
        ask("/api/v1/fid", R"({"fid":"F.PING","parameters":{"fid":"E.INT","name":"N","value":")" + number +
                               R"("},"wait":"delivered","timeoutMs":60000})");
        ask("/api/v1/console", R"({"line":"setStateValue NOTE )" + number + R"("})");
        pid_t driver = 0;
        ASSERT_TRUE(eventually([&] { return (driver = host.driverProcess("D")) != 0; })) << host.log();
        ::kill(driver, SIGKILL);
        expect("host fid E.PING fid=F.INT name=N value=" + number + " from api root to E: begins");
        expect("E fid F.INT name=N value=" + number + " to F: written");
        expect("F fid E.INT name=N value=" + number + " to E: begins");
        expect("host command setStateValue NOTE " + number + " from api root");
        EXPECT_TRUE(eventually([&] {
            return follower.count("D exit signal 9 (Killed)") == static_cast<std::size_t>(round);
        })) << host.log();
        // The delays before its starts begin anew.
        ask("/api/v1/drivers/D/reload", R"({"timeoutMs":60000})");
        const std::string start = "D start process " + std::to_string(driver);
        EXPECT_EQ(follower.count(start) + follower.count(start + ": again"), 1u) << start;
    }
    // It was a flood, of which the rest was counted; nobody else has paid for it.
    EXPECT_TRUE(eventually([&] {
        return follower.refused() == std::set<std::string>{"FIDS", "LINES", "VALUES"};
    })) << testing::PrintToString(follower.refused());
    follower.stop();
    EXPECT_FALSE(follower.wasLapped());
    EXPECT_EQ(end(), 0);
}
