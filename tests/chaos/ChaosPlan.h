#pragma once

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

/// Which fault comes next, and to whom: the same sequence for the same seed, without end. Every kind comes
/// before one comes again. Owned by Chaos; one thread.
class ChaosPlan {
public:
    enum class EKind {
        Crash,
        Abort,
        Exit,
        Kill,
        KillStarting,
        Stop,
        Sleep,
        Busy,
        FloodState,
        FloodFids,
        Garbage,
        Leak,
        Throw,
        ThrowNumber,
        Fail,
        SlowStart,
        DeathInLoad,
        DeathInDeinit,
        IgnoredDeinit,
        Reload,
        Module,
        Edit,
        EditMode,
        EditBroken,
        KillProbe,
        KillHost
    };

    struct Step {
        EKind kind;
        std::string target;   ///< empty for the host
        std::uint32_t value;  ///< what else the fault is to choose
    };

    explicit ChaosPlan(std::uint32_t seed) : m_random(seed) {}

    Step next();
    /// Some faults at once, each at a driver of its own; at times the host's death among them, as the last.
    std::vector<Step> nextSeveral();

    static const char* name(EKind kind);
    static const std::vector<EKind>& kinds();

private:
    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(m_random()) % limit; }
    EKind draw();
    Step step(EKind kind);
    void countEnds(const Step& step);

    std::mt19937 m_random;
    std::vector<EKind> m_deck;
    /// How often a driver has ended since its last reload: its restarts come ever later.
    std::map<std::string, int> m_ends;
};
