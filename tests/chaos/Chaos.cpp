#include "Chaos.h"

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <thread>

using namespace std::chrono_literals;
using EKind = ChaosPlan::EKind;

namespace {

/// What is left for the quiet at the end.
constexpr auto s_endTime = 20s;
/// A host that is started anew gets this long at least to live.
constexpr auto s_lifeTime = 45s;
/// How long a host that is to be killed meanwhile waits for the other faults.
constexpr auto s_strikePatience = 30s;

}  // namespace

Chaos::Chaos(ChaosWorkplace& workplace, const Settings& settings)
    : m_settings(settings),
      m_plan(settings.seed, settings.kinds),
      m_run(workplace, settings.output),
      m_steps(settings.output / "steps.txt", std::ios::trunc) {}

void Chaos::killHost(Scoreboard::EPhase phase, const ChaosPlan::Step& step, bool isAlone) {
    if (isAlone)
        m_run.endLifetime();
    m_run.forgetLifetime();
    Trial::Outcome outcome{.kind = step.kind, .isStruck = true};
    const auto begun = Clock::now();
    const unsigned int standstills = Patience::standstills();
    m_run.watcher().hostEnds();
    m_run.host()->signal(SIGKILL);
    const auto since = [begun] {
        return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begun);
    };
    const bool areGone = m_run.forgetHost();
    if (areGone)
        outcome.noticed = since();
    else
        outcome.failure = "the end of all drivers of a host that was killed";
    if (areGone && m_run.startHost())
        outcome.served = since();
    outcome.stoodStill = Patience::standstills() != standstills;
    m_run.board().add(phase, outcome);
}

bool Chaos::inject(Scoreboard::EPhase phase, const std::vector<ChaosPlan::Step>& steps) {
    for (const ChaosPlan::Step& step : steps) {
        m_come.insert(step.kind);
        m_steps << (&step == &steps.front() ? "" : "  and ") << ChaosPlan::name(step.kind) << " "
                << step.target << " " << step.value << "\n";
    }
    m_steps << std::flush;
    std::vector<Trial::Outcome> outcomes(steps.size());
    std::vector<std::thread> threads;
    std::atomic<std::size_t> struck = 0;
    std::atomic<std::size_t> done = 0;
    const ChaosPlan::Step* pKill = nullptr;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        if (steps[i].kind == EKind::FillStore)
            m_run.noteFilledRoom();
        if (steps[i].kind == EKind::KillHost) {
            pKill = &steps[i];
            continue;
        }
        threads.emplace_back([&, &step = steps[i], &outcome = outcomes[i], pHost = m_run.host()] {
            outcome =
                Trial({m_run.workplace(), m_run.watcher(), m_run.reader(), pHost, [&] { ++struck; }}, step)
                    .run();
            ++done;
        });
    }
    if (pKill) {
        // No fault of the plan is spared by the host's death.
        ChaosRun::eventually(s_strikePatience,
                             [&] { return struck >= threads.size() || done >= threads.size(); });
        if (!threads.empty())
            std::this_thread::sleep_for(std::chrono::milliseconds(pKill->value % 1500));
        m_run.watcher().hostEnds();
        for (std::thread& thread : threads)
            thread.join();
        // No plan of an overtaken fault is left for the next host.
        killHost(phase, *pKill, steps.size() == 1);
    } else {
        for (std::thread& thread : threads)
            thread.join();
    }
    for (std::size_t i = 0; i < steps.size(); ++i)
        if (&steps[i] != pKill)
            m_run.board().add(phase, outcomes[i]);
    if (!m_run.watcher().isHostGone() && !m_run.host()->waitForEnd(0s))
        return true;
    m_run.board().addFault("the host has ended by itself");
    m_run.watcher().hostEnds();
    return false;
}

bool Chaos::haveAllCome() const {
    const auto& kinds = m_plan.kinds();
    return std::all_of(kinds.begin(), kinds.end(), [this](EKind kind) { return m_come.contains(kind); });
}

const Scoreboard& Chaos::run() {
    const auto begun = Clock::now();
    const auto middle = begun + m_settings.time / 2;
    const auto end = begun + m_settings.time - s_endTime;
    m_run.board().setPlanned(m_plan.kinds());
    bool isUp = m_run.startHost();
    const auto isLate = [&](EKind kind) {
        return kind == EKind::KillHost && m_come.contains(kind) && end - Clock::now() < s_lifeTime;
    };
    while (isUp && Clock::now() < middle) {
        const auto step = m_plan.next();
        if (!isLate(step.kind))
            isUp = inject(Scoreboard::EPhase::Single, {step});
    }
    // Each kind comes at least once, on a slow machine as well.
    while (isUp && (Clock::now() < end || !haveAllCome())) {
        auto steps = m_plan.nextSeveral();
        if (isLate(steps.back().kind))
            steps.pop_back();
        if (!steps.empty())
            isUp = inject(Scoreboard::EPhase::Several, steps);
    }
    if (isUp)
        m_run.endInOrder();
    m_run.noteFindings(m_settings.output / "findings.txt");
    return m_run.board();
}
