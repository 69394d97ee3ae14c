#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "ChaosHost.h"
#include "ChaosPlan.h"
#include "ChaosWorkplace.h"
#include "StateReader.h"
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
    };
    struct Outcome {
        ChaosPlan::EKind kind = ChaosPlan::EKind::KillHost;
        std::string target = {};
        std::optional<std::chrono::microseconds> noticed = std::nullopt;
        std::optional<std::chrono::microseconds> served = std::nullopt;
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
    bool hang(const std::string& fault);
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
    bool killProbe();

    bool findProcess();
    /// The fault begins now.
    void begin();
    void fault(const std::string& text);
    bool strike(const std::string& text);
    void reloadDriver();
    /// Leaves the driver some messages to take.
    void leaveMessages();
    /// Waits until the process is dead and tells the reader, then until the host has said so.
    bool noticeEnd();
    bool noticeHang();
    void tellReader(pid_t pid);
    void noticedAt(Clock::time_point when);
    /// Sends pings until one is answered.
    bool serve();
    bool fails(const std::string& what);

    Surroundings m_in;
    const ChaosPlan::Step m_step;
    Outcome m_outcome;
    Clock::time_point m_begun;
    pid_t m_pid = 0;
};
