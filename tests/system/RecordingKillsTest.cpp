#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "HttpClient.h"
#include "RecordedWorkplace.h"
#include "Rounds.h"
#include "StreamText.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using EResult = stream::IStreamReader::EResult;

/// A host under load is killed at any moment: two drivers talk to each other, a client sends FIDs to two
/// others, and another client reads the stream.
class RecordingOfAKilledHost : public RecordedWorkplace {
protected:
    /// The lines of JSON by their numbers.
    using Records = std::map<std::uint64_t, std::string>;

    void prepare() override {
        RecordedWorkplace::prepare();
        workplace().addModule("Traffic");
        workplace().addModule("Echo");
        workplace().configure(entry("FAR", "queue", "Traffic") + entry("NEAR", "direct", "Traffic") +
                              entry("E", "direct") + entry("F", "queue"));
    }
    HostProcess& startTalking() {
        HostProcess::Start start = call({"--record-size", "4M", "--control", socket()});
        start.environment["MFD_TEST_TRAFFIC"] = "FAR NEAR";
        return this->start(start);
    }
    void pause(int most) {
        std::this_thread::sleep_for(
            std::chrono::milliseconds(std::uniform_int_distribution<>(0, most)(m_random)));
    }
    void kill(HostProcess& host) {
        host.signal(SIGKILL);
        ASSERT_EQ(host.waitForEnd(), 128 + SIGKILL) << host.log();
    }

    /// Follows the stream until the host ends.
    std::unique_ptr<HostProcess> startReader() {
        HostProcess::Start start;
        start.program = "/usr/bin/curl";
        start.arguments = {"-sN", "--unix-socket", socket(), "http://localhost/api/v1/stream?from=oldest"};
        start.files = workplace().directory() / "reader";
        fs::create_directories(start.files);
        return std::make_unique<HostProcess>(start);
    }
    /// Sends until the host ends; the numbers that were answered as delivered.
    static std::set<int> sendTo(const std::string& socket, const std::string& driverID) {
        // More would be more than a share of a small ring.
        constexpr int most = 1500;
        std::set<int> delivered;
        HttpClient client(socket);
        for (int number = 1; number <= most; ++number) {
            const auto answer = client.ask(postNumber(driverID, number));
            if (answer.status == 0)
                break;
            if (answer.status == 200)
                delivered.insert(number);
        }
        return delivered;
    }

    static std::uint64_t numberOf(const std::string& json) {
        const std::string head = R"({"number":)";
        return json.starts_with(head) ? std::stoull(json.substr(head.size())) : 0;
    }
    /// What the reader was sent, whole lines only, without their cursors.
    static Records seenIn(const std::string& output, std::string& instance) {
        Records seen;
        std::istringstream lines(output.substr(0, output.rfind('\n') + 1));
        for (std::string line; std::getline(lines, line);) {
            const std::string hello = R"({"kind":"hello","instance":")";
            if (line.starts_with(hello))
                instance = line.substr(hello.size(), line.find('"', hello.size()) - hello.size());
            if (const std::uint64_t number = numberOf(line); number != 0)
                seen[number] = line.substr(0, line.rfind(R"(,"cursor":)")) + '}';
        }
        return seen;
    }
    /// What the remote control exports of the host that has run last.
    Records exported(const std::string& ring) {
        const Answer answer =
            execute((TestWorkplace::build() / "bin/mfctl").string() + " recording export --to jsonl --ring " +
                    ring + " --directory " + recording());
        EXPECT_EQ(answer.exitCode, 0) << answer.text.substr(0, 1000);
        Records found;
        std::istringstream lines(answer.text);
        for (std::string line; std::getline(lines, line);) {
            const std::uint64_t number = numberOf(line);
            if (number == 0)
                continue;
            // Each host begins anew.
            if (!found.empty() && number <= found.rbegin()->first)
                found.clear();
            found[number] = line;
        }
        return found;
    }
    /// What segments and black boxes have of that host, and when the black box begins.
    Records kept(const std::string& instance, std::string& boxBegin) {
        Records found;
        std::uint64_t last = 0;
        for (const std::string& path : segments())
            add(found, path, instance, last);
        for (const std::string& path : boxes()) {
            last = 0;
            if (add(found, path, instance, last))
                boxBegin = stream::utcText(open(path)->firstTime());
        }
        return found;
    }
    /// Whether the segment is of that host. Its records come after the last.
    static bool add(Records& found, const std::string& path, const std::string& instance,
                    std::uint64_t& last) {
        const auto pReader = open(path);
        if (!pReader || pReader->instance() != instance)
            return false;
        for (auto result = pReader->next({}); result != EResult::End; result = pReader->next({})) {
            const auto& record = pReader->record();
            if (result == EResult::Gap || record.kind == stream::EKind::Gap)
                continue;
            EXPECT_GT(record.number, last) << path;
            last = record.number;
            std::string json;
            stream::appendJson(json, record, pReader->names());
            const auto there = found.try_emplace(last, json).first;
            EXPECT_EQ(there->second, json) << path;
        }
        return true;
    }
    /// The files of a host that was judged are of no use any more.
    void forget(const std::string& instance) {
        for (const auto& files : {segments(), boxes()}) {
            for (const std::string& path : files) {
                const auto pReader = open(path);
                if (pReader && pReader->instance() == instance)
                    fs::remove(path);
            }
        }
    }

    static std::string timeOf(const std::string& json) {
        const std::string name = R"("time":")";
        const auto begin = json.find(name) + name.size();
        return json.substr(begin, json.find('"', begin) - begin);
    }
    /// The first that is lacking or another one; empty where all are there.
    template <class IsMeant>
    static std::string lacking(const Records& seen, const Records& found, IsMeant isMeant) {
        for (const auto& [number, json] : seen) {
            if (!isMeant(json))
                continue;
            const auto there = found.find(number);
            if (there == found.end())
                return "lacks " + json;
            if (there->second != json)
                return "has " + there->second + " instead of " + json;
        }
        return {};
    }
    /// The first FID that was delivered and is not there; empty where all are.
    static std::string undelivered(const std::string& driverID, const std::set<int>& delivered,
                                   const Records& found) {
        std::set<std::string> there;
        const std::string head = R"("fid":")" + driverID + R"(.INT","parameters":[["name","N"],["value",")";
        for (const auto& [number, json] : found) {
            const auto begin = json.find(head);
            if (begin != std::string::npos)
                there.insert(json.substr(begin + head.size(),
                                         json.find('"', begin + head.size()) - begin - head.size()));
        }
        for (const int number : delivered) {
            if (there.count(std::to_string(number)) == 0)
                return driverID + ".INT " + std::to_string(number) + " was delivered and is not recorded";
        }
        return {};
    }

    const unsigned int m_seed = std::random_device()();
    std::mt19937 m_random{m_seed};
};

TEST_F(RecordingOfAKilledHost, HasAllThatWasSeenOrAnsweredEndurance) {
    SCOPED_TRACE("seed " + std::to_string(m_seed));
    const int kills = rounds(3);
    std::size_t seenOfAll = 0;
    std::size_t deliveredOfAll = 0;
    startTalking();
    for (int round = 1; round <= kills; ++round) {
        SCOPED_TRACE("kill " + std::to_string(round));
        ASSERT_TRUE(host().waitForLog("HOST: the workplace is started\n")) << host().log();
        const auto pReader = startReader();
        ASSERT_TRUE(pReader->waitForOutput(R"({"number":)")) << pReader->log();
        std::map<std::string, std::set<int>> delivered{{"E", {}}, {"F", {}}};
        std::vector<std::thread> senders;
        for (auto& [driverID, numbers] : delivered)
            senders.emplace_back([&driverID = driverID, &numbers = numbers, where = socket()] {
                numbers = sendTo(where, driverID);
            });
        pause(500);
        kill(host());
        for (std::thread& sender : senders)
            sender.join();
        pReader->waitForEnd();
        std::string instance;
        const Records seen = seenIn(pReader->output(), instance);
        ASSERT_FALSE(seen.empty());
        seenOfAll += seen.size();

        // Without a host: the ring, and the segments before it.
        ASSERT_THAT(rings(), testing::SizeIs(1));
        const auto isAny = [](const std::string&) { return true; };
        const Records left = exported(rings().front());
        ASSERT_EQ(lacking(seen, left, isAny), "");
        for (const auto& [driverID, numbers] : delivered) {
            deliveredOfAll += numbers.size();
            ASSERT_EQ(undelivered(driverID, numbers, left), "");
        }

        // Hosts that are killed before they have kept what was left.
        for (int more = round % 3; more > 0; --more) {
            HostProcess& next = startTalking();
            pause(300);
            kill(next);
        }
        HostProcess& next = startTalking();
        ASSERT_TRUE(next.waitForLog("HOST: the workplace is started\n")) << next.log();
        ASSERT_TRUE(eventually([] { return rings().size() == 1; }, 20ms)) << "what was left is not taken";
        std::string boxBegin;
        const Records inFiles = kept(instance, boxBegin);
        ASSERT_NE(boxBegin, "") << "no black box";
        // Older values were thinned out.
        const auto isInFull = [&](const std::string& json) {
            return json.find(R"("kind":"value")") == std::string::npos || timeOf(json) >= boxBegin;
        };
        ASSERT_EQ(lacking(seen, inFiles, isInFull), "");
        for (const auto& [driverID, numbers] : delivered)
            ASSERT_EQ(undelivered(driverID, numbers, inFiles), "");
        forget(instance);
    }
    EXPECT_GT(seenOfAll, static_cast<std::size_t>(kills) * 10);
    EXPECT_GT(deliveredOfAll, 0u);
    end();
}
