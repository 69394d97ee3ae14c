#include "Fleet.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

#include "LinkRights.h"
#include "ThreadName.h"

namespace {

/// A second has so many steps; a workplace's turn to change a value comes each tenth, to send a FID once.
constexpr std::size_t s_steps = 1000;
constexpr std::size_t s_changes = 10;
/// Steps from a workplace's change to its FID.
constexpr std::size_t s_fidDelay = 2;

}  // namespace

std::string Fleet::siteOf(std::size_t number) {
    std::array<char, 16> name{};
    std::snprintf(name.data(), name.size(), "SITE%06zu", number);
    return name.data();
}

std::vector<LinkSettings> Fleet::linksOf(const ValueNames& names, const Plan& plan, std::size_t number) {
    std::vector<LinkSettings> links;
    const std::size_t count = plan.workplaces;
    for (const std::size_t far : {number + 1, number + count - 1}) {
        LinkSettings link;
        link.site = siteOf(number);
        link.farSite = plan.hasNeighbours ? siteOf(far % count) : siteOf(count + far);
        link.broker.host = "127.0.0.1";
        link.broker.port = plan.port;
        link.broker.password = link.site;
        link.exported.ids = link.imported.ids = link.allowed.ids = names.drivers();
        link.spread = plan.spread;
        links.push_back(link);
    }
    return links;
}

Fleet::Fleet(const ValueNames& names, const Plan& plan) : m_names(names) {
    for (std::size_t number = 0; number < plan.workplaces; ++number)
        m_workplaces.push_back(std::make_unique<SimulatedWorkplace>(names, linksOf(names, plan, number)));
    const std::size_t count = plan.workplaces;
    for (std::size_t number = 0; plan.hasNeighbours && number < count; ++number) {
        m_workplaces[number]->setFar(0, m_workplaces[(number + 1) % count]->host());
        m_workplaces[number]->setFar(1, m_workplaces[(number + count - 1) % count]->host());
    }
}

Fleet::~Fleet() {
    stopTraffic();
    // Each refers to its neighbours' hosts until its own thread has ended.
    for (const auto& pWorkplace : m_workplaces)
        pWorkplace->stop();
}

std::string Fleet::users(const Plan& plan) {
    std::string users;
    for (std::size_t number = 0; number < plan.workplaces; ++number)
        users += siteOf(number) + ":" + siteOf(number) + "\n";
    return users;
}

std::string Fleet::rights(const ValueNames& names, const Plan& plan) {
    std::vector<LinkSettings> links;
    for (std::size_t number = 0; number < plan.workplaces; ++number) {
        for (const LinkSettings& link : linksOf(names, plan, number))
            links.push_back(link);
    }
    return linkRights(links);
}

void Fleet::start() {
    for (const auto& pWorkplace : m_workplaces)
        pWorkplace->start();
}

std::size_t Fleet::complete() const {
    return static_cast<std::size_t>(std::count_if(m_workplaces.begin(), m_workplaces.end(),
                                                  [](const auto& pPlace) { return pPlace->isComplete(); }));
}

void Fleet::beginTraffic() {
    m_pace = std::thread(&Fleet::pace, this);
}

void Fleet::stopTraffic() {
    m_isStopping = true;
    if (m_pace.joinable())
        m_pace.join();
}

/// Nothing at the same time as anything else, as far as there is room: what is measured is the way of one
/// message, as of the bare ones, and not the queue of all.
void Fleet::pace() {
    base::nameThread("fleet", "pace");
    const std::size_t count = m_workplaces.size();
    const std::size_t drivers = m_names.drivers().size();
    std::vector<std::vector<std::size_t>> changing(s_steps / s_changes);
    std::vector<std::vector<std::size_t>> sending(s_steps);
    for (std::size_t number = 0; number < count; ++number) {
        changing[number * changing.size() / count].push_back(number);
        sending[(number * s_steps / count + s_fidDelay) % s_steps].push_back(number);
    }
    const auto begin = std::chrono::steady_clock::now();
    for (std::size_t step = 0; !m_isStopping; ++step) {
        const auto& changers = changing[step % changing.size()];
        const auto& senders = sending[step % s_steps];
        if (changers.empty() && senders.empty())
            continue;
        const auto due = begin + step * std::chrono::microseconds(1'000'000 / s_steps);
        std::this_thread::sleep_until(due);
        const std::chrono::duration<double> lag = std::chrono::steady_clock::now() - due;
        m_lag = std::max(m_lag.load(), lag.count());
        for (const std::size_t number : changers)
            m_workplaces[number]->change((step / changing.size() * 7 + number) % m_names.size());
        const std::size_t second = step / s_steps;
        for (const std::size_t number : senders)
            m_workplaces[number]->sendFid(second % 2, "D" + std::to_string(second % drivers + 1) + ".SET");
    }
}

std::uint64_t Fleet::told() const {
    std::uint64_t told = 0;
    for (const auto& pWorkplace : m_workplaces)
        told += pWorkplace->host().told();
    return told;
}

Delays Fleet::takeDelays() {
    Delays delays;
    for (const auto& pWorkplace : m_workplaces)
        delays.add(pWorkplace->takeDelays());
    return delays;
}

double Fleet::takeLag() {
    return m_lag.exchange(0);
}
