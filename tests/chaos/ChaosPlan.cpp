#include "ChaosPlan.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>

#include "ChaosWorkplace.h"

namespace {

using EKind = ChaosPlan::EKind;

struct Kind {
    EKind kind;
    const char* word;
    const char* name;
    const char* types;  ///< of the drivers that it may befall: letters of their IDs
    bool isForProcesses;
    int ends;  ///< how often it ends its driver, before that serves again; -1: it reloads it
};

constexpr Kind s_kinds[] = {
    {EKind::Crash, "crash", "crash", "F", true, 1},
    {EKind::Abort, "abort", "abort", "F", true, 1},
    {EKind::Exit, "exit", "exit", "F", true, 1},
    {EKind::Kill, "kill", "kill -9 of a driver", "TFS", true, 1},
    {EKind::KillStarting, "kill-starting", "kill -9 of a driver that starts", "TFS", true, 1},
    {EKind::Stop, "stop", "hang, stopped", "TFS", true, 1},
    {EKind::Sleep, "sleep", "hang, asleep", "F", true, 1},
    {EKind::Busy, "busy", "hang, busy", "F", true, 1},
    {EKind::FloodState, "flood-state", "flood of state", "F", false, 0},
    {EKind::FloodFids, "flood-fids", "flood of FIDs", "F", false, 0},
    {EKind::Garbage, "garbage", "garbage messages", "F", true, 0},
    {EKind::Leak, "leak", "leak", "F", false, 0},
    {EKind::Throw, "throw", "exception", "F", false, 0},
    {EKind::ThrowNumber, "throw-number", "number thrown", "F", false, 0},
    {EKind::Fail, "fail", "failing operation", "F", false, 0},
    {EKind::SlowStart, "slow-start", "slow start", "F", true, 1},
    {EKind::DeathInLoad, "death-in-load", "death while loading", "L", true, 3},
    {EKind::DeathInDeinit, "death-in-deinit", "death inside deinitialize", "F", true, -1},
    {EKind::IgnoredDeinit, "ignored-deinit", "DEINIT ignored", "F", true, -1},
    {EKind::Reload, "reload", "reload", "TFS", false, -1},
    {EKind::Module, "module", "module file replaced", "T", false, -1},
    {EKind::Edit, "edit", "workplace file edited", "E", false, -1},
    {EKind::EditMode, "edit-mode", "a driver's mode edited", "M", false, -1},
    {EKind::EditBroken, "edit-broken", "workplace file broken", "TFS", false, 0},
    {EKind::FileMissing, "file-missing", "workplace file missing", "TFS", true, -1},
    {EKind::FileEmpty, "file-empty", "workplace file empty", "TFS", true, -1},
    {EKind::FileCutShort, "file-cut", "workplace file cut short", "TFS", true, -1},
    {EKind::FileIllFormed, "file-ill-formed", "workplace file ill-formed", "TFS", true, -1},
    {EKind::FileLinkLoop, "file-loop", "workplace file a link loop", "TFS", true, -1},
    {EKind::KillProbe, "kill-probe", "kill -9 of a module's trial", "P", false, -1},
    {EKind::Pause, "pause", "stopped for a moment", "TFS", true, 0},
    {EKind::StopAndContinue, "stop-continue", "hang, stopped and continued", "TFS", true, 1},
    {EKind::IgnoreSignals, "ignore-signals", "hang, signals ignored", "F", true, 1},
    {EKind::Fork, "fork", "child left behind", "F", true, 1},
    {EKind::ForkAway, "fork-away", "child in a session of its own", "F", true, 1},
    {EKind::Exec, "exec", "becomes another program", "F", true, 1},
    {EKind::CloseLocks, "close-locks", "closes its descriptors", "F", true, 1},
    {EKind::DamageInput, "damage-input", "input queue damaged", "F", true, 1},
    {EKind::DamageOutput, "damage-output", "output queue damaged", "F", true, 1},
    {EKind::LeaveTicket, "ticket", "ticket left in a queue's lock", "F", true, 1},
    {EKind::FillStore, "fill-store", "state store filled", "F", true, -1},
    {EKind::BlockOutput, "block-output", "standard output blocked", "F", true, 1},
    {EKind::BlockLog, "block-log", "standard error blocked", "F", true, 1},
    {EKind::DescriptorsOfDriver, "driver-descriptors", "no descriptors, driver", "TFS", true, 0},
    {EKind::DescriptorsOfHost, "host-descriptors", "no descriptors, host", "TFS", true, -1},
    {EKind::DirectoryOpened, "directory-opened", "queue directory opened", "TFS", true, -1},
    {EKind::DirectoryTaken, "directory-taken", "queue directory another's", "TFS", true, -1},
    {EKind::StopHost, "stop-host", "host stopped for a moment", "TFS", false, 0},
    {EKind::KillHost, "kill-host", "kill -9 of the host", "", false, 0},
};

const Kind& find(EKind kind) {
    return *std::find_if(std::begin(s_kinds), std::end(s_kinds),
                         [&](const Kind& k) { return k.kind == kind; });
}

bool isOneOf(EKind kind, std::initializer_list<EKind> kinds) {
    return std::find(kinds.begin(), kinds.end(), kind) != kinds.end();
}

/// The workplace file is no file that a host takes.
bool breaksFile(EKind kind) {
    return isOneOf(kind, {EKind::EditBroken, EKind::FileMissing, EKind::FileEmpty, EKind::FileCutShort,
                          EKind::FileIllFormed, EKind::FileLinkLoop});
}

/// It is done to what all drivers share.
bool befallsAll(EKind kind) {
    return breaksFile(kind) ||
           isOneOf(kind, {EKind::FillStore, EKind::BlockOutput, EKind::BlockLog, EKind::DescriptorsOfHost,
                          EKind::DirectoryOpened, EKind::DirectoryTaken, EKind::StopHost});
}

/// As long as it lasts, what is reloaded by hand is refused.
bool refusesReloads(EKind kind) {
    return breaksFile(kind) ||
           isOneOf(kind, {EKind::DescriptorsOfHost, EKind::DirectoryOpened, EKind::DirectoryTaken});
}

/// It ends the driver's log at once: what the driver says of it is lost where nobody reads the log meanwhile.
bool endsLog(EKind kind) {
    return isOneOf(kind, {EKind::Crash, EKind::Abort, EKind::Exit, EKind::Exec, EKind::CloseLocks});
}

bool exclude(EKind a, EKind b) {
    const auto reloads = [](EKind kind) { return find(kind).ends < 0 || kind == EKind::KillStarting; };
    return (befallsAll(a) && befallsAll(b)) || (refusesReloads(a) && reloads(b)) ||
           (refusesReloads(b) && reloads(a)) || (a == EKind::BlockLog && endsLog(b)) ||
           (b == EKind::BlockLog && endsLog(a));
}

/// Beyond this the next start of a driver would take longer than a fault is worth.
constexpr int s_mostEnds = 3;
/// So many draws may come to nothing before fewer faults come at once.
constexpr int s_mostDraws = 200;

}  // namespace

const char* ChaosPlan::name(EKind kind) {
    return find(kind).name;
}

const char* ChaosPlan::word(EKind kind) {
    return find(kind).word;
}

const std::vector<EKind>& ChaosPlan::allKinds() {
    static const std::vector<EKind> s_all = [] {
        std::vector<EKind> all;
        for (const Kind& kind : s_kinds)
            all.push_back(kind.kind);
        return all;
    }();
    return s_all;
}

std::optional<EKind> ChaosPlan::kindOf(const std::string& word) {
    const auto* pKind =
        std::find_if(std::begin(s_kinds), std::end(s_kinds), [&](const Kind& k) { return word == k.word; });
    return pKind == std::end(s_kinds) ? std::nullopt : std::optional(pKind->kind);
}

EKind ChaosPlan::draw() {
    if (m_deck.empty()) {
        m_deck = m_kinds;
        // Not std::shuffle: every library has its own.
        for (std::size_t i = m_deck.size(); i > 1; --i)
            std::swap(m_deck[i - 1], m_deck[below(static_cast<std::uint32_t>(i))]);
    }
    const EKind kind = m_deck.back();
    m_deck.pop_back();
    return kind;
}

ChaosPlan::Step ChaosPlan::draw(const std::vector<Step>& others) {
    const EKind kind = draw();
    const auto candidates = ChaosWorkplace::members(find(kind).types, find(kind).isForProcesses);
    if (candidates.empty())
        return {kind, {}, below(1000000)};
    const auto count = static_cast<std::uint32_t>(candidates.size());
    const std::uint32_t first = below(count);
    const std::uint32_t value = below(1000000);
    const auto isFree = [&](const std::string& target) {
        return std::none_of(others.begin(), others.end(),
                            [&](const Step& other) { return other.target == target; });
    };
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::string& target = candidates[(first + i) % count];
        if (isFree(target) && m_ends[target] + std::max(find(kind).ends, 0) <= s_mostEnds)
            return {kind, target, value};
    }
    m_deck.insert(m_deck.begin(), kind);
    return {EKind::Reload, candidates[first], value};
}

void ChaosPlan::countEnds(const Step& step) {
    if (step.kind == EKind::KillHost)
        m_ends.clear();
    else if (find(step.kind).ends < 0)
        m_ends[step.target] = 0;
    else
        m_ends[step.target] += find(step.kind).ends;
}

ChaosPlan::Step ChaosPlan::next() {
    const Step chosen = draw({});
    countEnds(chosen);
    return chosen;
}

std::vector<ChaosPlan::Step> ChaosPlan::nextSeveral() {
    std::vector<Step> several;
    const std::uint32_t count = 2 + below(4);
    for (int draws = 0; several.size() < count && draws < s_mostDraws; ++draws) {
        const Step chosen = draw(several);
        const bool isApart = std::none_of(several.begin(), several.end(), [&](const Step& other) {
            return other.target == chosen.target || exclude(other.kind, chosen.kind);
        });
        if (!isApart) {
            // It comes another time; one that only makes room for another does not.
            if (std::find(m_kinds.begin(), m_kinds.end(), chosen.kind) != m_kinds.end())
                m_deck.insert(m_deck.begin(), chosen.kind);
            continue;
        }
        several.push_back(chosen);
        if (chosen.kind == EKind::KillHost)
            break;
    }
    std::for_each(several.begin(), several.end(), [this](const Step& s) { countEnds(s); });
    return several;
}
