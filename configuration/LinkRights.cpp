#include "LinkRights.h"

#include <map>
#include <set>
#include <utility>

#include "LinkTopics.h"

namespace {

using Broker = std::pair<std::string, int>;
/// Each user's lines.
using Rights = std::map<std::string, std::set<std::string>>;

std::set<std::string> driversOf(const LinkSettings::Drivers& drivers) {
    return drivers.areAll ? std::set<std::string>{"*"} : drivers.ids;
}

void add(Rights& rights, const LinkSettings& link) {
    std::set<std::string>& own = rights[link.site];
    own.insert("topic readwrite " + LinkTopics::tree(link.site));
    for (const std::string& topic :
         {LinkTopics::up(link.farSite), LinkTopics::tick(link.farSite), LinkTopics::replies(link.farSite)})
        own.insert("topic read " + topic);
    for (const std::string& driver : driversOf(link.imported)) {
        own.insert("topic read " + LinkTopics::states(link.farSite, driver));
        own.insert("topic read " + LinkTopics::events(link.farSite, driver));
    }
    for (const std::string& driver : driversOf(link.allowed))
        rights[link.farSite].insert("topic write " + LinkTopics::fids(link.site, driver));
}

}  // namespace

std::string linkRights(const std::vector<LinkSettings>& links) {
    std::map<Broker, Rights> brokers;
    for (const LinkSettings& link : links)
        add(brokers[{link.broker.host, link.broker.port}], link);
    std::string text;
    for (const auto& [broker, rights] : brokers) {
        text += "# broker " + broker.first + " port " + std::to_string(broker.second) + "\n";
        for (const auto& [user, lines] : rights) {
            text += "user " + user + "\n";
            for (const std::string& line : lines)
                text += line + "\n";
        }
    }
    return text;
}
