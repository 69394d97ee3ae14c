#include "FidSenders.h"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "FIDHelper.h"
#include "FidTap.h"
#include "FidWatch.h"
#include "HostLog.h"
#include "Printable.h"
#include "QueueNames.h"
#include "ThreadName.h"
#include "sal/MessageQueue.h"

namespace {

using Clock = FidSenders::Clock;

/// The queue wakes nobody when a message is taken: that is looked for, often at first.
constexpr std::chrono::milliseconds s_firstLooks{1};
constexpr std::chrono::milliseconds s_laterLooks{10};
constexpr std::chrono::milliseconds s_first{50};
/// For what nobody waits for at the moment.
constexpr std::chrono::milliseconds s_idleLooks{100};
/// Nobody waits longer.
constexpr std::chrono::hours s_longestLimit{24};

/// One FID on its way.
struct Job {
    std::string fid;
    FIDParameterList parameters;
    FidSenders::Asker asker;
    std::string driverID;
    EFidStage waitFor = EFidStage::Accepted;
    Clock::time_point began = Clock::now();
    Clock::time_point deadline;
    FidSenders::Told told;     ///< empty once the last is told
    bool isLimitTold = false;  ///< how far it was when the limit was over

    FidOutcome outcome;
    std::optional<FidWatch::Place> place;
    Clock::time_point written;
};
using JobPtr = std::shared_ptr<Job>;

/// What is to be told and said as soon as no lock is held.
class Tidings {
public:
    Tidings() = default;
    ~Tidings() {
        for (const std::string& line : m_lines)
            hostLog(sal::LogOutput::eWarning) << line << std::endl;
        for (const auto& [told, outcome] : m_outcomes)
            told(outcome);
    }
    Tidings(const Tidings&) = delete;
    Tidings& operator=(const Tidings&) = delete;

    /// Nothing the second time.
    void add(Job& job) {
        if (!job.told)
            return;
        m_outcomes.emplace_back(std::exchange(job.told, nullptr), outcomeOf(job));
    }
    /// The limit is over, and it goes on.
    void addInterim(Job& job) {
        job.isLimitTold = true;
        m_outcomes.emplace_back(job.told, outcomeOf(job));
        m_outcomes.back().second.isInterim = true;
    }
    void say(std::string line) { m_lines.push_back(std::move(line)); }

private:
    static const FidOutcome& outcomeOf(Job& job) {
        job.outcome.driverID = job.driverID;
        job.outcome.took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - job.began);
        return job.outcome;
    }

    std::vector<std::pair<FidSenders::Told, FidOutcome>> m_outcomes;
    std::vector<std::string> m_lines;
};

FidOutcome refused(EFidReason reason, std::string text) {
    FidOutcome outcome;
    outcome.stage = EFidStage::Nobody;
    outcome.reason = reason;
    outcome.text = std::move(text);
    outcome.isFinal = true;
    return outcome;
}

std::string fids(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " FID waits" : " FIDs wait");
}

}  // namespace

/// What the senders and the thread that watches them share. One lock for all: a FID holds it for moments.
class FidSenders::Core : public std::enable_shared_from_this<Core> {
public:
    Core(const DriverTable& drivers, const IFunctionID& target, const Settings& settings)
        : m_drivers(drivers), m_target(target), m_settings(settings) {}

    void post(const JobPtr& pJob) {
        const auto driver = m_drivers.find(pJob->driverID);
        const auto level = sal::MessageQueue::level(protocol::inputQueue(pJob->driverID));
        std::string fault = level ? FidWatch::whyTooLong(pJob->fid, pJob->parameters) : std::string();
        Tidings tidings;
        const std::lock_guard lock(m_mutex);
        joinEnded();
        if (m_isStopping)
            pJob->outcome = refused(EFidReason::Stopping, "the host is stopping");
        else if (!fault.empty())
            pJob->outcome = refused(EFidReason::TooLong, std::move(fault));
        else if (fault = take(pJob, driver.has_value(), level); !fault.empty())
            pJob->outcome = refused(EFidReason::QueueFull, std::move(fault));
        if (pJob->outcome.isFinal)
            m_settings.fidSent(driver ? driver->id : std::string(), pJob->outcome);
        if (pJob->outcome.isFinal || pJob->waitFor == EFidStage::Accepted)
            tidings.add(*pJob);
        else
            m_awaited.push_back(pJob);
        wakeWatch(std::min(pJob->deadline, Clock::now() + m_settings.patience));
    }

    bool stop(std::chrono::milliseconds limit) {
        std::thread watch;
        {
            Tidings tidings;
            const std::lock_guard lock(m_mutex);
            m_isStopping = true;
            for (const auto& [key, pSender] : m_senders) {
                pSender->jobs.clear();
                pSender->changed.notify_all();
            }
            for (const JobPtr& pJob : m_awaited) {
                pJob->outcome.reason = EFidReason::Stopping;
                pJob->outcome.text = pJob->outcome.stage == EFidStage::Accepted
                                         ? "the host is stopping"
                                         : "the host is stopping; the FID was on its way to " +
                                               pJob->driverID + ", and may have reached it";
                tidings.add(*pJob);
            }
            m_awaited.clear();
            watch = std::move(m_watch);
            m_watchChanged.notify_all();
        }
        if (watch.joinable())
            watch.join();
        std::unique_lock lock(m_mutex);
        const bool areGone = m_senderEnded.wait_for(lock, limit, [this] { return m_senders.empty(); });
        joinEnded();
        return areGone;
    }

    /// For the end of the process: threads that have not come back are left to themselves.
    void leave() {
        const std::lock_guard lock(m_mutex);
        for (const auto& [key, pSender] : m_senders)
            pSender->thread.detach();
    }

private:
    struct Sender {
        std::string key;  ///< the driver ID; empty for all that is no driver's
        std::condition_variable changed;
        std::deque<JobPtr> jobs;
        JobPtr pCurrent;
        Clock::time_point since;     ///< it has been sending that one
        bool isSaid = false;         ///< that it does not come back
        bool isDispensable = false;  ///< another driver needs a sender
        std::thread thread;
    };
    using SenderPtr = std::shared_ptr<Sender>;

    // Under the lock, down to wakeWatch().

    /// Hands the job to its sender; why not, or empty.
    std::string take(const JobPtr& pJob, bool isDriver,
                     const std::optional<sal::MessageQueue::Level>& level) {
        const std::string key = isDriver ? pJob->driverID : std::string();
        const auto found = m_senders.find(key);
        const std::size_t waiting =
            found == m_senders.end() ? 0 : found->second->jobs.size() + (found->second->pCurrent ? 1 : 0);
        if (level && level->depth + waiting + m_settings.roomKept > level->capacity)
            return "the input queue of " + pJob->driverID + " holds " + std::to_string(level->depth) +
                   " of " + std::to_string(level->capacity) + " messages, and " + fids(waiting);
        if (waiting >= m_settings.capacity)
            return fids(waiting) + " for " + pJob->driverID + " already";
        if (found != m_senders.end()) {
            found->second->jobs.push_back(pJob);
            found->second->isDispensable = false;
            found->second->changed.notify_one();
            return {};
        }
        if (m_senders.size() >= m_settings.mostSenders && !dismissOne())
            return "FIDs for " + std::to_string(m_senders.size()) + " drivers wait already";
        auto pSender = std::make_shared<Sender>();
        pSender->key = key;
        pSender->jobs.push_back(pJob);
        try {
            if (!m_watch.joinable())
                m_watch = std::thread([pCore = shared_from_this()] { pCore->watch(); });
            pSender->thread = std::thread([pCore = shared_from_this(), pSender] { pCore->run(*pSender); });
        } catch (const std::system_error& error) {
            return "no thread can be had: " + error.code().message();
        }
        m_senders.emplace(key, std::move(pSender));
        return {};
    }

    /// Has a sender end that has nothing to do; false when each has.
    bool dismissOne() {
        for (const auto& [key, pSender] : m_senders) {
            if (!pSender->jobs.empty() || pSender->pCurrent || pSender->isDispensable)
                continue;
            pSender->isDispensable = true;
            pSender->changed.notify_one();
            return true;
        }
        return false;
    }

    void joinEnded() {
        // They need the lock no more.
        for (std::thread& thread : m_ended)
            thread.join();
        m_ended.clear();
    }

    void tell(const JobPtr& pJob, Tidings& tidings) {
        std::erase(m_awaited, pJob);
        tidings.add(*pJob);
    }

    void wakeWatch(Clock::time_point latest) {
        if (latest < m_watchWakes)
            m_watchChanged.notify_one();
    }

    // A sender's thread.

    void run(Sender& sender) {
        base::nameThread(sender.key.empty() ? "no driver" : sender.key, "send");
        const FidTap::WatchedThread watched;
        while (const JobPtr pJob = next(sender)) {
            const FidTrail::Asking asking(pJob->asker.origin, pJob->asker.who);
            FidWatch watch(m_drivers, pJob->fid, pJob->parameters);
            std::string fault;
            try {
                m_target.sendFID(pJob->fid, pJob->parameters);
            } catch (const std::exception& error) {
                fault = error.what();
            }
            settle(sender, pJob, watch, fault);
        }
    }

    /// The next FID; null when the thread is to end, and is no sender any more.
    JobPtr next(Sender& sender) {
        Tidings tidings;
        std::unique_lock lock(m_mutex);
        sender.changed.wait_for(lock, m_settings.idle,
                                [&] { return m_isStopping || sender.isDispensable || !sender.jobs.empty(); });
        if (sender.jobs.empty()) {
            if (sender.thread.joinable())
                m_ended.push_back(std::move(sender.thread));
            m_senders.erase(sender.key);
            m_senderEnded.notify_all();
            return nullptr;
        }
        JobPtr pJob = std::move(sender.jobs.front());
        sender.jobs.pop_front();
        sender.pCurrent = pJob;
        sender.since = Clock::now();
        sender.isSaid = false;
        wakeWatch(sender.since + m_settings.patience);
        pJob->outcome.stage = EFidStage::Dispatched;
        if (pJob->waitFor == EFidStage::Dispatched)
            tell(pJob, tidings);
        return pJob;
    }

    void settle(Sender& sender, const JobPtr& pJob, const FidWatch& watch, const std::string& fault) {
        Tidings tidings;
        const std::lock_guard lock(m_mutex);
        sender.pCurrent.reset();
        // Nobody waits for it then, and the table of drivers may be gone.
        if (m_isStopping)
            return;
        pJob->outcome = fault.empty() ? watch.outcome() : refused(EFidReason::Threw, fault);
        m_settings.fidSent(sender.key, pJob->outcome);
        pJob->place = watch.place();
        pJob->written = Clock::now();
        if (pJob->outcome.isFinal || pJob->waitFor != EFidStage::Taken || !pJob->place)
            tell(pJob, tidings);
        else
            wakeWatch(pJob->written + s_firstLooks);
    }

    // The watching thread: limits, messages that are taken, senders that do not come back.

    void watch() {
        base::nameThread("FID limits");
        for (;;) {
            Tidings tidings;
            std::unique_lock lock(m_mutex);
            m_watchWakes = nextLook(Clock::now());
            if (!m_isStopping)
                m_watchChanged.wait_until(lock, m_watchWakes);
            m_watchWakes = Clock::time_point::min();
            if (m_isStopping)
                return;
            look(Clock::now(), tidings);
        }
    }

    Clock::time_point nextLook(Clock::time_point now) const {
        auto next = now + s_longestLimit;
        for (const JobPtr& pJob : m_awaited) {
            if (!pJob->isLimitTold)
                next = std::min(next, pJob->deadline);
            if (pJob->place)
                next = std::min(next, now + timeToLook(*pJob, now));
        }
        for (const auto& [key, pSender] : m_senders) {
            if (pSender->pCurrent && !pSender->isSaid)
                next = std::min(next, pSender->since + m_settings.patience);
        }
        return next;
    }

    static std::chrono::milliseconds timeToLook(const Job& job, Clock::time_point now) {
        if (job.isLimitTold)
            return s_idleLooks;
        return now - job.written < s_first ? s_firstLooks : s_laterLooks;
    }

    void look(Clock::time_point now, Tidings& tidings) {
        const std::vector<JobPtr> awaited(m_awaited.begin(), m_awaited.end());
        for (const JobPtr& pJob : awaited) {
            if (pJob->place)
                lookAtQueue(*pJob);
            if (pJob->outcome.isFinal)
                tell(pJob, tidings);
            else if (pJob->deadline <= now && !pJob->isLimitTold)
                tidings.addInterim(*pJob);
        }
        for (const auto& [key, pSender] : m_senders) {
            if (!pSender->pCurrent || pSender->isSaid || now - pSender->since < m_settings.patience)
                continue;
            pSender->isSaid = true;
            const Job& job = *pSender->pCurrent;
            const bool isQueue = sal::MessageQueue::level(protocol::inputQueue(job.driverID)).has_value();
            tidings.say(job.driverID + ": " + base::quoted(job.fid) +
                        (isQueue ? " waits for room in its input queue" : " does not come back") +
                        (pSender->jobs.empty() ? "" : "; " + fids(pSender->jobs.size()) + " for it"));
        }
    }

    /// Whether the driver process has taken the message, or never will.
    void lookAtQueue(Job& job) const {
        const auto level = job.place->level();
        if (level && job.place->isTaken(*level)) {
            job.outcome.stage = EFidStage::Taken;
            job.outcome.isFinal = true;
            return;
        }
        const auto driver = m_drivers.find(job.driverID);
        const bool isOver = driver && !driver->isAlive && !driver->isByHand && driver->start > 0;
        if (level && !isOver)
            return;
        job.outcome.reason = EFidReason::NotRunning;
        job.outcome.text = job.driverID + " has ended before it has taken it";
        job.outcome.isFinal = true;
    }

    const DriverTable& m_drivers;
    const IFunctionID& m_target;
    const Settings m_settings;

    std::mutex m_mutex;
    bool m_isStopping = false;
    std::map<std::string, SenderPtr> m_senders;
    std::vector<std::thread> m_ended;  ///< senders to be joined
    std::condition_variable m_senderEnded;
    std::list<JobPtr> m_awaited;  ///< those of which the last is still to be told
    std::thread m_watch;
    std::condition_variable m_watchChanged;
    Clock::time_point m_watchWakes = Clock::time_point::min();  ///< when it looks next, where it waits
};

FidSenders::FidSenders(const DriverTable& drivers, const IFunctionID& target, const Settings& settings)
    : m_pCore(std::make_shared<Core>(drivers, target, settings)) {}

FidSenders::~FidSenders() {
    m_pCore->stop(std::chrono::milliseconds(0));
    m_pCore->leave();
}

void FidSenders::send(const std::string& fid, const FIDParameterList& parameters, EFidStage waitFor,
                      std::chrono::milliseconds limit, Told told, const Asker& asker) {
    auto pJob = std::make_shared<Job>();
    pJob->asker = asker;
    pJob->fid = fid;
    pJob->parameters = parameters;
    pJob->driverID = FIDHelper(fid).getDriverID();
    pJob->waitFor = waitFor;
    pJob->deadline = pJob->began + std::clamp<std::chrono::milliseconds>(limit, std::chrono::milliseconds(0),
                                                                         s_longestLimit);
    pJob->told = std::move(told);
    m_pCore->post(pJob);
}

bool FidSenders::stop(std::chrono::milliseconds limit) {
    return m_pCore->stop(limit);
}
