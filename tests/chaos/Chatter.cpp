// Talks to each driver that MFD_CHAOS_DRIVERS names (IDs with blanks between, its own among them): numbered
// FIDs HEAR, the events E and the state value N with the number of its instance and their own, all without a
// gap; FIDs and events tell when they were begun. Notes in a ledger in MFD_CHAOS_LEDGERS what it has sent
// whole and what it has heard.
//   PING value=   shows the value as PONG
//   FLOOD         takes what somebody floods it with
//   QUIET         sends nothing any more
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Ledger.h"
#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class Chatter : public MfdDriverBase {
public:
    ~Chatter() override { stop(); }

    /// HEAR only notes what came: two drivers that answered each other could wait for each other for ever.
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        if (fid == "HEAR")
            hear(numberOf(parameters, "from"), numberOf(parameters, "number"),
                 std::strtoll(parameters.value("at").c_str(), nullptr, 10));
        else if (fid == "PING")
            panelState()->setStateValue("PONG", parameters.value("value"));
        else if (fid == "QUIET")
            m_isQuiet = true;
        else
            return fid == "FLOOD";
        return true;
    }

    bool initializationCompleted() override {
        std::istringstream names(std::getenv("MFD_CHAOS_DRIVERS"));
        for (std::string name; names >> name;)
            m_names.push_back(name);
        const auto own = std::find(m_names.begin(), m_names.end(), configuration().driverID);
        {
            const std::lock_guard lock(m_mutex);
            m_ledger = Ledger::create(std::getenv("MFD_CHAOS_LEDGERS"),
                                      static_cast<std::uint32_t>(own - m_names.begin()));
            m_ledger->isInHost = std::filesystem::read_symlink("/proc/self/exe").filename() == "mfhost";
            m_ledger->ready = Ledger::now();
        }
        m_talks.resize(m_names.size());
        m_thread = std::thread([this] { talk(); });
        return true;
    }
    bool deinitialize() override {
        if (m_ledger)
            m_ledger->isStopped = 1;
        stop();
        return true;
    }

private:
    /// What goes to one driver.
    struct Talk {
        std::uint32_t next = 0;
        Ledger::Sent* pEntry = nullptr;
    };

    static std::uint32_t numberOf(const FIDParameterList& parameters, const std::string& name) {
        return static_cast<std::uint32_t>(std::strtoul(parameters.value(name).c_str(), nullptr, 10));
    }

    void hear(std::uint32_t sender, std::uint32_t number, std::int64_t sentAt) const {
        const std::lock_guard lock(m_mutex);
        if (!m_ledger)
            return;
        const std::int64_t now = Ledger::now();
        Ledger::Heard*& pEntry = m_heard[sender];
        if (!pEntry || pEntry->first + pEntry->count != number || now - pEntry->begun > Ledger::s_entryTime) {
            const std::uint32_t index = m_ledger->heardCount;
            if (index >= Ledger::s_capacity) {
                m_ledger->isFull = 1;
                return;
            }
            pEntry = &m_ledger->heard[index];
            pEntry->sender = sender;
            pEntry->first = number;
            pEntry->begun = now;
            m_ledger->heardCount = index + 1;
        }
        pEntry->done = now;
        ++pEntry->count;
        m_ledger->horizon = std::max(m_ledger->horizon.load(), sentAt);
    }

    bool send(std::uint32_t target, std::uint32_t number) {
        FIDParameterList parameters;
        parameters.add("from", std::to_string(m_ledger->instance));
        parameters.add("number", std::to_string(number));
        parameters.add("at", std::to_string(Ledger::now()));
        // Unlike the distributor's interface, this one tells whether the message was taken.
        auto* pSender = dynamic_cast<IFunctionID*>(system()->queryInterface(IID_IFunctionID));
        return pSender && pSender->sendFID(m_names[target] + ".HEAR", parameters);
    }

    void sendNoted(std::uint32_t target) {
        Talk& talk = m_talks[target];
        const std::int64_t now = Ledger::now();
        if (!talk.pEntry || now - talk.pEntry->begun > Ledger::s_entryTime) {
            const std::uint32_t index = m_ledger->sentCount;
            if (index >= Ledger::s_capacity) {
                m_ledger->isFull = 1;
                m_isQuiet = true;
                return;
            }
            talk.pEntry = &m_ledger->sent[index];
            talk.pEntry->target = target;
            talk.pEntry->first = talk.next;
            talk.pEntry->begun = now;
            m_ledger->sentCount = index + 1;
        }
        if (!send(target, talk.next++)) {
            talk.pEntry = nullptr;
            return;
        }
        talk.pEntry->done = Ledger::now();
        ++talk.pEntry->count;
    }

    void talk() {
        const std::string prefix = std::to_string(m_ledger->instance) + ":";
        for (std::uint32_t round = 0; !m_isStopping;
             std::this_thread::sleep_for(std::chrono::milliseconds(25))) {
            if (m_isQuiet) {
                m_ledger->isQuiet = 1;
                continue;
            }
            for (std::uint32_t target = 0; target < m_names.size() && !m_isStopping; ++target)
                if (target != m_ledger->driver)
                    sendNoted(target);
            panelState()->triggerEvent("E",
                                       prefix + std::to_string(round) + ":" + std::to_string(Ledger::now()));
            m_ledger->events = round + 1;
            panelState()->setStateValue("N", prefix + std::to_string(round));
            m_ledger->state = round++;
        }
    }
    void stop() {
        m_isStopping = true;
        if (m_thread.joinable())
            m_thread.join();
    }

    std::vector<std::string> m_names;
    std::vector<Talk> m_talks;
    std::atomic<bool> m_isStopping = false;
    mutable std::atomic<bool> m_isQuiet = false;
    std::thread m_thread;
    mutable std::mutex m_mutex;  ///< of what is heard
    mutable Ledger m_ledger;
    mutable std::map<std::uint32_t, Ledger::Heard*> m_heard;
};

}  // namespace

MFD_DRIVER(Chatter);
