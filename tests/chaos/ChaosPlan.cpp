#include "ChaosPlan.h"

#include <algorithm>
#include <iterator>

#include "ChaosWorkplace.h"

namespace {

using EKind = ChaosPlan::EKind;

struct Kind {
    EKind kind;
    const char* name;
    const char* types;  ///< of the drivers that it may befall: letters of their IDs
    bool isForProcesses;
    int ends;  ///< how often it ends its driver, before that serves again; -1: it reloads it
};

constexpr Kind s_kinds[] = {
    {EKind::Crash, "crash", "F", true, 1},
    {EKind::Abort, "abort", "F", true, 1},
    {EKind::Exit, "exit", "F", true, 1},
    {EKind::Kill, "kill -9 of a driver", "TFS", true, 1},
    {EKind::KillStarting, "kill -9 of a driver that starts", "TFS", true, 1},
    {EKind::Stop, "hang, stopped", "TFS", true, 1},
    {EKind::Sleep, "hang, asleep", "F", true, 1},
    {EKind::Busy, "hang, busy", "F", true, 1},
    {EKind::FloodState, "flood of state", "F", false, 0},
    {EKind::FloodFids, "flood of FIDs", "F", false, 0},
    {EKind::Garbage, "garbage messages", "F", true, 0},
    {EKind::Leak, "leak", "F", false, 0},
    {EKind::Throw, "exception", "F", false, 0},
    {EKind::ThrowNumber, "number thrown", "F", false, 0},
    {EKind::Fail, "failing operation", "F", false, 0},
    {EKind::SlowStart, "slow start", "F", true, 1},
    {EKind::DeathInLoad, "death while loading", "L", true, 3},
    {EKind::DeathInDeinit, "death inside deinitialize", "F", true, -1},
    {EKind::IgnoredDeinit, "DEINIT ignored", "F", true, -1},
    {EKind::Reload, "reload", "TFS", false, -1},
    {EKind::Module, "module file replaced", "T", false, -1},
    {EKind::Edit, "workplace file edited", "E", false, -1},
    {EKind::EditMode, "a driver's mode edited", "M", false, -1},
    {EKind::EditBroken, "workplace file broken", "TFS", false, 0},
    {EKind::KillProbe, "kill -9 of a module's trial", "P", false, -1},
    {EKind::KillHost, "kill -9 of the host", "", false, 0},
};

const Kind& find(EKind kind) {
    return *std::find_if(std::begin(s_kinds), std::end(s_kinds),
                         [&](const Kind& k) { return k.kind == kind; });
}

/// What is reloaded by hand is refused as long as somebody else has broken the workplace file.
bool exclude(EKind a, EKind b) {
    const auto reloads = [](EKind kind) {
        return find(kind).ends < 0 || kind == EKind::KillStarting || kind == EKind::EditBroken;
    };
    return (a == EKind::EditBroken && reloads(b)) || (b == EKind::EditBroken && reloads(a));
}

/// Beyond this the next start of a driver would take longer than a fault is worth.
constexpr int s_mostEnds = 3;

}  // namespace

const char* ChaosPlan::name(EKind kind) {
    return find(kind).name;
}

const std::vector<EKind>& ChaosPlan::kinds() {
    static const std::vector<EKind> s_all = [] {
        std::vector<EKind> all;
        for (const Kind& kind : s_kinds)
            all.push_back(kind.kind);
        return all;
    }();
    return s_all;
}

EKind ChaosPlan::draw() {
    if (m_deck.empty()) {
        m_deck = kinds();
        // Not std::shuffle: every library has its own.
        for (std::size_t i = m_deck.size(); i > 1; --i)
            std::swap(m_deck[i - 1], m_deck[below(static_cast<std::uint32_t>(i))]);
    }
    const EKind kind = m_deck.back();
    m_deck.pop_back();
    return kind;
}

ChaosPlan::Step ChaosPlan::step(EKind kind) {
    const Kind& drawn = find(kind);
    const auto candidates = ChaosWorkplace::members(drawn.types, drawn.isForProcesses);
    const std::string target =
        candidates.empty() ? std::string() : candidates[below(static_cast<std::uint32_t>(candidates.size()))];
    Step step{kind, target, below(1000000)};
    if (m_ends[target] + drawn.ends > s_mostEnds && !target.empty())
        step.kind = EKind::Reload;
    return step;
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
    const Step chosen = step(draw());
    countEnds(chosen);
    return chosen;
}

std::vector<ChaosPlan::Step> ChaosPlan::nextSeveral() {
    std::vector<Step> several;
    const std::uint32_t count = 2 + below(4);
    while (several.size() < count) {
        const Step chosen = step(draw());
        const bool isApart = std::none_of(several.begin(), several.end(), [&](const Step& other) {
            return other.target == chosen.target || exclude(other.kind, chosen.kind);
        });
        if (!isApart)
            continue;
        several.push_back(chosen);
        if (chosen.kind == EKind::KillHost)
            break;
    }
    std::for_each(several.begin(), several.end(), [this](const Step& s) { countEnds(s); });
    return several;
}
