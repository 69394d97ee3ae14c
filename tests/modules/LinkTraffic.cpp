// One end of a link under load. GO far=SITE2 fids=500 changes=5000 has it send so many FIDs a second to the
// driver T of that workplace and set the values K0 to K99 so often, each to the milliseconds of the steady
// clock; HOLD value=17 ends that and sets each value so. Does each FID N... that comes. What it has sent and
// done, and what it was told of its FIDs, stands in the file ledger-... of its working directory, a line each
// that a kill does not take back:
//   S ID          sent, ID being N, the process, a count, and the time in nanoseconds of the steady clock
//   R ID          refused at once
//   X ID TIME     done here
//   O ID OUTCOME  what it was told of it
//   G COUNT       so many events came too fast to be read
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include "ILinkHost.h"
#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

std::int64_t now() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

class LinkTraffic : public MfdDriverBase {
public:
    ~LinkTraffic() override { stop(); }

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        if (fid.starts_with("N")) {
            note("X " + fid + " " + std::to_string(now()));
            return true;
        }
        const std::lock_guard lock(m_mutex);
        if (fid == "GO") {
            m_far = parameters.value("far");
            m_fids = std::atoi(parameters.value("fids").c_str());
            m_changes = std::atoi(parameters.value("changes").c_str());
            return true;
        }
        if (fid != "HOLD")
            return false;
        m_far.clear();
        for (int i = 0; i < s_values; ++i)
            set(i, std::atoi(parameters.value("value").c_str()));
        return true;
    }

    bool initializationCompleted() override {
        const std::string name = configuration().workingDirectory + "/ledger-" + std::to_string(::getpid()) +
                                 "-" + std::to_string(now());
        m_ledger = ::open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        m_thread = std::thread([this] { run(); });
        return m_ledger >= 0;
    }
    bool deinitialize() override {
        stop();
        return true;
    }

private:
    static constexpr int s_values = 100;
    static constexpr int s_turns = 100;  ///< in a second

    void stop() {
        m_isStopping = true;
        if (m_thread.joinable())
            m_thread.join();
        if (m_ledger >= 0)
            ::close(m_ledger);
        m_ledger = -1;
    }

    void note(const std::string& line) const {
        const std::string whole = line + "\n";
        if (::write(m_ledger, whole.data(), whole.size()) < 0)
            std::abort();
    }

    void set(int value, int number) const {
        panelState()->setStateValueInt("K" + std::to_string(value), number);
    }

    void run() const {
        const auto* pHost =
            system() ? dynamic_cast<ILinkHost*>(system()->queryInterface(ILinkHost::s_id)) : nullptr;
        auto due = std::chrono::steady_clock::now();
        std::uint64_t lastEvent = 0;
        std::uint64_t count = 0;
        int nextValue = 0;
        while (!m_isStopping) {
            if (pHost)
                lastEvent = noteOutcomes(*pHost, lastEvent);
            std::string far;
            int fids = 0;
            {
                // What is set while this runs is not overtaken by a change.
                const std::lock_guard lock(m_mutex);
                far = m_far;
                fids = m_fids / s_turns;
                for (int i = 0; !far.empty() && i < m_changes / s_turns; ++i)
                    set(nextValue++ % s_values, static_cast<int>(now() / 1'000'000));
            }
            for (int i = 0; !far.empty() && i < fids; ++i) {
                const std::string id = "N" + std::to_string(::getpid()) + "_" + std::to_string(++count) +
                                       "_" + std::to_string(now());
                const bool isSent = sendToDriver(far + ".T." + id, {});
                note((isSent ? "S " : "R ") + id);
            }
            due += std::chrono::milliseconds(1000 / s_turns);
            // After a stop of the whole machine it does not make up for all of it.
            due = std::max(due, std::chrono::steady_clock::now() - std::chrono::milliseconds(100));
            std::this_thread::sleep_until(due);
        }
    }

    std::uint64_t noteOutcomes(const ILinkHost& host, std::uint64_t last) const {
        for (const ILinkHost::Event& event : host.events(last)) {
            if (last > 0 && event.number > last + 1)
                note("G " + std::to_string(event.number - last - 1));
            last = event.number;
            const auto colon = event.value.find(": ");
            if (!event.id.ends_with(".OUTCOME") || !event.value.starts_with("T.") ||
                colon == std::string::npos)
                continue;
            const std::string outcome = event.value.substr(colon + 2);
            note("O " + event.value.substr(2, colon - 2) + " " + outcome.substr(0, outcome.find(':')));
        }
        return last;
    }

    mutable std::mutex m_mutex;
    mutable std::string m_far;
    mutable int m_fids = 0;
    mutable int m_changes = 0;
    int m_ledger = -1;
    std::atomic<bool> m_isStopping = false;
    std::thread m_thread;
};

}  // namespace

MFD_DRIVER(LinkTraffic);
