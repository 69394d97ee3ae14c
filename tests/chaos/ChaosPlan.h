#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <utility>
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
        FileMissing,
        FileEmpty,
        FileCutShort,
        FileIllFormed,
        FileLinkLoop,
        KillProbe,
        Pause,
        StopAndContinue,
        IgnoreSignals,
        Fork,
        ForkAway,
        Exec,
        CloseLocks,
        DamageInput,
        DamageOutput,
        LeaveTicket,
        FillStore,
        BlockOutput,
        BlockLog,
        DescriptorsOfDriver,
        DescriptorsOfHost,
        DirectoryOpened,
        DirectoryTaken,
        StopHost,
        KillHost
    };

    struct Step {
        EKind kind;
        std::string target;   ///< empty for the host
        std::uint32_t value;  ///< what else the fault is to choose
    };

    /// Of these kinds alone; at least one.
    ChaosPlan(std::uint32_t seed, std::vector<EKind> kinds) : m_random(seed), m_kinds(std::move(kinds)) {}
    explicit ChaosPlan(std::uint32_t seed) : ChaosPlan(seed, allKinds()) {}

    Step next();
    /// Some faults at once, each at a driver of its own; at times the host's death among them, as the last.
    std::vector<Step> nextSeveral();
    /// The kinds that come.
    const std::vector<EKind>& kinds() const { return m_kinds; }

    /// As people read it, and as options name it.
    static const char* name(EKind kind);
    static const char* word(EKind kind);
    static const std::vector<EKind>& allKinds();
    /// Nothing for a word that names none.
    static std::optional<EKind> kindOf(const std::string& word);

private:
    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(m_random()) % limit; }
    EKind draw();
    /// What comes next; a kind for which no driver has room comes later, and a reload comes first.
    Step draw(const std::vector<Step>& others);
    void countEnds(const Step& step);

    std::mt19937 m_random;
    std::vector<EKind> m_kinds;
    std::vector<EKind> m_deck;
    /// How often a driver has ended since its last reload: its restarts come ever later.
    std::map<std::string, int> m_ends;
};
