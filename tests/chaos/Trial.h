#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "ChaosHost.h"
#include "ChaosPlan.h"
#include "ChaosWorkplace.h"
#include "QueueMeddler.h"
#include "StateReader.h"
#include "TakenDirectory.h"
#include "Watcher.h"

/// One fault, from when it is injected until its driver serves again. Made by Chaos for each step at a
/// driver, and run on any thread beside others at other drivers. The host may be killed meanwhile; then it
/// ends without a judgment.
class Trial {
public:
    using Clock = std::chrono::steady_clock;

    struct Surroundings {
        ChaosWorkplace& workplace;
        Watcher& watcher;
        StateReader& reader;
        std::shared_ptr<ChaosHost> pHost;
        std::function<void()> struck;  ///< called once, as soon as the fault has been injected
    };
    struct Outcome {
        ChaosPlan::EKind kind = ChaosPlan::EKind::KillHost;
        std::string target = {};
        std::optional<std::chrono::microseconds> noticed = std::nullopt;
        std::optional<std::chrono::microseconds> served = std::nullopt;
        bool isStruck = false;     ///< the fault has been injected
        bool isOvertaken = false;  ///< the host was killed meanwhile
        bool stoodStill = false;   ///< all processes were stopped meanwhile: the times mean nothing
        std::string failure = {};  ///< what should have come and has not
    };

    Trial(Surroundings surroundings, ChaosPlan::Step step);
    ~Trial();
    Trial(const Trial&) = delete;
    Trial& operator=(const Trial&) = delete;

    Outcome run();

private:
    bool inject();
    bool kill();
    bool killStarting();
    bool stop();
    bool stopAndContinue();
    bool pause();
    bool hang(const std::string& fault);
    bool ignoreSignals();
    bool end(const std::string& fault);
    bool survive(const std::string& fault);
    bool startSlowly();
    bool dieInLoad();
    bool dieInDeinit();
    bool ignoreDeinit();
    bool reload();
    bool replaceModule();
    bool edit();
    bool editMode();
    bool editBroken();
    bool breakFile(ChaosWorkplace::EBroken how);
    bool killProbe();
    bool leaveChild(const std::string& fault);
    bool loseLocks(const std::string& fault);
    bool damage(const std::string& queueSuffix);
    bool leaveTicket();
    bool fillStore();
    bool blockStream(ChaosHost::EStream stream);
    bool takeDriversDescriptors();
    bool takeHostsDescriptors();
    bool takeDirectory(TakenDirectory::EHow how);
    bool stopHost();

    bool findProcess();
    /// The fault begins now.
    void begin();
    void beganAt(Clock::time_point when);
    void fault(const std::string& text);
    bool strike(const std::string& text);
    void reloadDriver();
    /// Reads the file with a reload, as one does who has put something right.
    bool serveAndReload();
    /// Leaves the driver some messages to take.
    void leaveMessages();
    /// Waits until the process is dead and tells the reader, then until the host has said so.
    bool noticeEnd();
    bool noticeHang(bool isContinued = false);
    void noticedAt(Clock::time_point when);
    /// Sends pings until one is answered.
    bool serve();
    /// Another driver answers, in the host's process and so without a queue that could be in the way.
    bool otherServes();
    bool answers(const std::string& driverID);
    bool fails(const std::string& what);
    std::chrono::milliseconds patience() const;

    Surroundings m_in;
    const ChaosPlan::Step m_step;
    Outcome m_outcome;
    /// What befalls others by this fault.
    std::deque<Watcher::OfAll> m_ofAll;
    Clock::time_point m_begun;
    pid_t m_pid = 0;
};
