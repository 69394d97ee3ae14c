#include "ReturnModel.h"

#include <algorithm>
#include <queue>
#include <random>
#include <vector>

#include "Backoff.h"

namespace {

/// As BrokerConnection has it: a connection that is not taken by then has failed.
constexpr double s_patience = 10;
/// A day: what takes longer does not end.
constexpr double s_limit = 86'400;

enum class EWhat { Try, Publish };

struct Event {
    double at = 0;
    EWhat what = EWhat::Try;
    std::size_t workplace = 0;

    bool operator>(const Event& other) const { return at > other.at; }
};

double seconds(Backoff::Duration duration) {
    return std::chrono::duration<double>(duration).count();
}

}  // namespace

ReturnModel::Outcome ReturnModel::run(const Plan& plan) {
    std::mt19937_64 random(plan.seed);
    const auto part = [&](Backoff::Duration longest) {
        return Backoff::Duration(
            std::uniform_int_distribution<Backoff::Duration::rep>(0, longest.count())(random));
    };
    const auto spread =
        std::chrono::duration_cast<Backoff::Duration>(std::chrono::duration<double>(plan.spread));
    std::vector<Backoff> backoffs(plan.workplaces, Backoff(part));
    std::priority_queue<Event, std::vector<Event>, std::greater<>> events;
    // The broker goes at the beginning, and each has been connected for long.
    for (std::size_t i = 0; i < plan.workplaces; ++i)
        events.push({seconds(backoffs[i].lost(std::chrono::hours(1)).value()), EWhat::Try, i});

    Outcome outcome;
    if (plan.costs.running * static_cast<double>(plan.workplaces) >= 1)
        return outcome;
    std::vector<double> complete;
    double free = plan.away;  // when the broker has done what it has been given
    const auto given = [&](double at, double work) {
        // The part of it that those who are complete leave.
        const double left = 1 - plan.costs.running * static_cast<double>(complete.size());
        if (left <= 0)
            return s_limit;
        free = std::max(free, at) + work / left;
        outcome.longestQueue = std::max(outcome.longestQueue, free - at);
        return free;
    };
    while (!events.empty() && events.top().at < s_limit) {
        const Event event = events.top();
        events.pop();
        const std::size_t i = event.workplace;
        if (event.what == EWhat::Publish) {
            complete.push_back(given(event.at, plan.costs.publishing));
            continue;
        }
        const double next = event.at + seconds(backoffs[i].begin());
        if (event.at < plan.away) {
            ++outcome.refused;
            events.push({next, EWhat::Try, i});
            continue;
        }
        const double taken = given(event.at, plan.costs.connecting);
        if (taken - event.at <= s_patience) {
            events.push({taken + seconds(part(spread)), EWhat::Publish, i});
            continue;
        }
        ++outcome.unanswered;
        events.push({std::max(next, event.at + s_patience), EWhat::Try, i});
    }
    std::sort(complete.begin(), complete.end());
    outcome.isOver = complete.size() == plan.workplaces && complete.back() < s_limit;
    if (outcome.isOver) {
        outcome.half = complete[complete.size() / 2] - plan.away;
        outcome.all = complete.back() - plan.away;
    }
    return outcome;
}
