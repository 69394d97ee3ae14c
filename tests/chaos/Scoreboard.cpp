#include "Scoreboard.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>

namespace {

using Durations = std::vector<std::chrono::microseconds>;

/// The smallest value that this share of all does not exceed.
std::string percentile(Durations durations, double share) {
    if (durations.empty())
        return "-";
    std::sort(durations.begin(), durations.end());
    const auto rank = static_cast<std::size_t>(std::ceil(share * static_cast<double>(durations.size())));
    const double ms = static_cast<double>(durations[std::max<std::size_t>(rank, 1) - 1].count()) / 1000;
    char text[32];
    std::snprintf(text, sizeof text, ms < 100 ? "%.1f" : "%.0f", ms);
    return text;
}

void printRow(std::ostream& stream, const std::string& name, std::size_t count, const Durations& noticed,
              const Durations& served) {
    char text[256];
    std::snprintf(text, sizeof text, "  %-32s %6zu  %8s %8s %8s  %8s %8s %8s\n", name.c_str(), count,
                  percentile(noticed, 0.5).c_str(), percentile(noticed, 0.99).c_str(),
                  percentile(noticed, 1).c_str(), percentile(served, 0.5).c_str(),
                  percentile(served, 0.99).c_str(), percentile(served, 1).c_str());
    stream << text;
}

void printNumber(std::ostream& stream, const std::string& name, const std::string& value) {
    stream << "  " << name << std::string(name.size() < 64 ? 64 - name.size() : 1, ' ') << value << "\n";
}

std::string percent(double share) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %%", share);
    return text;
}

void printNumber(std::ostream& stream, const std::string& name, std::uint64_t value) {
    printNumber(stream, name, std::to_string(value));
}

}  // namespace

void Scoreboard::add(EPhase phase, const Trial::Outcome& outcome) {
    m_outcomes.emplace_back(phase, outcome);
    if (!outcome.failure.empty())
        addFault(std::string(ChaosPlan::name(outcome.kind)) + (outcome.target.empty() ? "" : " of ") +
                 outcome.target + ": there was not, in time, " + outcome.failure);
}

std::size_t Scoreboard::struck() const {
    return static_cast<std::size_t>(std::count_if(m_outcomes.begin(), m_outcomes.end(),
                                                  [](const auto& each) { return each.second.isStruck; }));
}

std::vector<std::string> Scoreboard::complaints() const {
    std::vector<std::string> found = m_faults;
    const auto demandNone = [&found](std::uint64_t count, const std::string& what) {
        if (count > 0)
            found.push_back(std::to_string(count) + " " + what);
    };
    demandNone(messages.lost, "FIDs between the living were lost");
    demandNone(messages.lostOfDead, "FIDs that a driver had sent whole before its death were lost");
    demandNone(messages.twice, "FIDs came twice");
    demandNone(messages.disordered, "FIDs came out of order");
    demandNone(messages.eventsLost, "events were lost");
    demandNone(messages.eventsDisordered, "events came twice or out of order");
    demandNone(messages.full, "ledgers were full");
    demandNone(statesWrong, "last state values were wrong");
    demandNone(static_cast<std::uint64_t>(shownLive.count()),
               "ms long values of the dead were shown as live");
    demandNone(mutesShownLive, "times a driver that owed an answer for too long was shown as live");
    demandNone(deadShownLive, "values of the dead were printed as live");
    demandNone(unanswered, "questions at the console had no answer");
    demandNone(untold, "times the console had to wait and nobody was told why");
    demandNone(droppedLines, "lines of the follower were dropped, so events cannot be judged");
    demandNone(unexpectedEnds, "processes ended or were taken for hung that nobody had harmed");
    demandNone(falseVerdicts, "times something else was said of a driver than what was done to it");
    demandNone(sanitizerReports, "lines of a sanitizer");
    for (const std::string& line : left)
        found.push_back("left behind: " + line);
    for (const std::string& line : intrusions)
        found.push_back("another user " + line);
    // In order; with 3 when a line that was typed to it has failed, as FIDs to drivers that were killed do.
    if (hostExit != 0 && hostExit != 3)
        found.push_back("the host ended with " + (hostExit ? std::to_string(*hostExit) : "nothing"));
    // Whoever has seen little has nothing to say.
    if (m_areSharesDemanded && messages.judgedShare() < s_judgedShare)
        found.push_back("only " + percent(messages.judgedShare()) + " of the FIDs were judged");
    if (m_areSharesDemanded && messages.judgedEventsShare() < s_judgedShare)
        found.push_back("only " + percent(messages.judgedEventsShare()) + " of the events were judged");
    if (statesJudged == 0 || stateReplies == 0)
        found.emplace_back("no state was judged");
    if (faults() > struck())
        found.push_back(std::to_string(faults() - struck()) + " planned faults were not injected");
    for (const ChaosPlan::EKind kind : m_planned) {
        const bool hasCome = std::any_of(m_outcomes.begin(), m_outcomes.end(), [kind](const auto& each) {
            return each.second.kind == kind && each.second.isStruck;
        });
        if (!hasCome)
            found.push_back(std::string(ChaosPlan::name(kind)) + ": has not come");
    }
    for (const Lifetime& lifetime : m_lifetimes) {
        if (!lifetime.after.isLike(lifetime.before))
            found.emplace_back("a host held more or less at its end than at its start");
        if (s_isMemoryJudged && lifetime.growthKb() > s_memoryToleranceKb)
            found.push_back("a host's memory grew by " +
                            std::to_string(lifetime.after.memoryKb - lifetime.before.memoryKb) + " KiB");
    }
    return found;
}

void Scoreboard::printFaults(std::ostream& stream, EPhase phase) const {
    stream << (phase == EPhase::Single ? "\nOne fault at a time" : "\nSeveral faults at once")
           << "; ms from the fault to the host's word on it, and to the next answered PING\n"
           << "  fault                             count    noticed                      served\n"
           << "                                                p50      p99      max       p50      p99      "
              "max\n";
    Durations allNoticed;
    Durations allServed;
    std::size_t all = 0;
    std::size_t overtaken = 0;
    std::size_t untimed = 0;
    for (const ChaosPlan::EKind kind : ChaosPlan::allKinds()) {
        Durations noticed;
        Durations served;
        std::size_t count = 0;
        for (const auto& [when, outcome] : m_outcomes) {
            if (when != phase || outcome.kind != kind)
                continue;
            ++count;
            overtaken += outcome.isOvertaken ? 1 : 0;
            untimed += outcome.stoodStill ? 1 : 0;
            if (outcome.stoodStill)
                continue;
            if (outcome.noticed)
                noticed.push_back(*outcome.noticed);
            if (outcome.served)
                served.push_back(*outcome.served);
        }
        if (count == 0)
            continue;
        printRow(stream, ChaosPlan::name(kind), count, noticed, served);
        all += count;
        allNoticed.insert(allNoticed.end(), noticed.begin(), noticed.end());
        allServed.insert(allServed.end(), served.begin(), served.end());
    }
    printRow(stream, "all", all, allNoticed, allServed);
    if (overtaken > 0)
        stream << "  " << overtaken << " of them were overtaken by the host's own end\n";
    if (untimed > 0)
        stream << "  " << untimed << " of them were not timed: all processes were stopped meanwhile\n";
}

void Scoreboard::printStrikes(std::ostream& stream) const {
    stream << "\nKills and stops\n";
    std::uint64_t all = 0;
    for (const auto& [name, count] : m_strikes) {
        printNumber(stream, name, count);
        all += count;
    }
    printNumber(stream, "all", all);
    for (const auto& [name, count] : m_wishes)
        printNumber(stream, name, count);
    printNumber(stream, "times that exactly those ran whom file and marks ask for", rollsJudged);
    printNumber(stream, "times the workplace file was written meanwhile", fileWrites);
    printNumber(stream, "  of them broken", fileBreaks);
    printNumber(stream, "attempts of another user", attempts);
    printNumber(stream, "  of them successful", intrusions.size());
}

void Scoreboard::printHoldings(std::ostream& stream) const {
    stream << "\nHeld by the host of each life of it     at its start    at its end\n";
    if (!s_isMemoryJudged)
        stream << "  (under a sanitizer the memory is only shown)\n";
    const std::pair<const char*, long Holdings::*> rows[] = {
        {"descriptors", &Holdings::descriptors},
        {"threads", &Holdings::threads},
        {"processes, with its drivers", &Holdings::processes},
        {"processes that nobody has reaped", &Holdings::zombies},
        {"queues", &Holdings::queues},
        {"temporary files", &Holdings::temporary},
        {"private memory, KiB", &Holdings::memoryKb},
        {"memory of its queues, KiB", &Holdings::sharedKb}};
    std::size_t number = 0;
    for (const Lifetime& lifetime : m_lifetimes) {
        stream << "  life " << ++number << "\n";
        for (const auto& [name, member] : rows) {
            char text[128];
            std::snprintf(text, sizeof text, "    %-32s %12ld  %12ld\n", name, lifetime.before.*member,
                          lifetime.after.*member);
            stream << text;
        }
    }
}

void Scoreboard::print(std::ostream& stream) const {
    if (m_strikes.empty()) {
        printFaults(stream, EPhase::Single);
        printFaults(stream, EPhase::Several);
        stream << "  " << struck() << " of " << faults() << " planned faults were injected\n";
    } else {
        printStrikes(stream);
    }
    stream << "\nMessages, of " << messages.instances << " instances of talking drivers\n";
    printNumber(stream, "FIDs sent whole", messages.sent);
    printNumber(stream, "FIDs judged", messages.judged);
    printNumber(stream, "  lost", messages.lost);
    printNumber(stream, "  came twice", messages.twice);
    printNumber(stream, "  came out of order", messages.disordered);
    printNumber(stream, "last FIDs of drivers that died, judged", messages.judgedOfDead);
    printNumber(stream, "  lost", messages.lostOfDead);
    printNumber(stream, "  share of all that was judged", percent(messages.judgedShare()));
    printNumber(stream, "last FIDs of drivers that were told to stop, only counted",
                messages.countedOfStopped);
    printNumber(stream, "  sent between that and their end, and lost", messages.lostOfStopped);
    printNumber(stream, "events triggered", messages.triggered);
    printNumber(stream, "events judged", messages.events);
    printNumber(stream, "  share of all", percent(messages.judgedEventsShare()));
    printNumber(stream, "  lost", messages.eventsLost);
    printNumber(stream, "  twice or out of order", messages.eventsDisordered);
    printNumber(stream, "last state values judged", statesJudged);
    printNumber(stream, "  wrong", statesWrong);
    stream << "\nValues of the dead\n";
    printNumber(stream, "lists of the state, read", stateReplies);
    printNumber(stream, "deaths that a list was asked for at once", judgedDeaths);
    printNumber(stream, "  time in which a stale value was listed as live, ms",
                static_cast<std::uint64_t>(shownLive.count()));
    printNumber(stream, "  stale values printed as live by the follower", deadShownLive);
    printNumber(stream, "  times a mute driver was listed as live", mutesShownLive);
    stream << "\nThe console\n";
    printNumber(stream, "longest wait for an answer, ms", static_cast<std::uint64_t>(longestWait.count()));
    printNumber(stream, "  questions without an answer", unanswered);
    printNumber(stream, "  long waits of which nobody was told", untold);
    printHoldings(stream);
    stream << "\nAt the end\n";
    printNumber(stream, "ends of processes that nobody had harmed", unexpectedEnds);
    printNumber(stream, "lines of a sanitizer", sanitizerReports);
    printNumber(stream, "verdicts on something that was not done", falseVerdicts);
    printNumber(stream, "processes, files, links, addresses, mounts, sockets left", left.size());
    printNumber(stream, "the host's exit code", hostExit ? std::to_string(*hostExit) : "none");
    const auto found = complaints();
    stream << (found.empty() ? "\ngood\n" : "\nNOT GOOD\n");
    for (const std::string& complaint : found)
        stream << "  " << complaint << "\n";
    stream << std::flush;
}
