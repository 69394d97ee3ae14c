#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Expect.h"
#include "LinkCore.h"

// Whatever comes from a broker: topics and payloads are read as they are written, and a site to which it
// comes does no FID twice, none that is late, kept, not allowed or of nobody, keeps no more than its limits,
// and writes nothing but what is its own. An input is messages, each of fields.

namespace {

using namespace std::chrono_literals;

constexpr char s_betweenMessages = '\x1e';
constexpr char s_betweenFields = '\x1f';

class Host final : public ILinkHost, public IPanelState {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
    Changes changes(std::uint64_t since) const override {
        Changes all{2, since == 0, {}, {}};
        if (since == 0)
            all.states = {{"A.POS", 4, "", {}}, {"SECRET.POS", 5, "", {}}};
        return all;
    }
    std::vector<Event> events(std::uint64_t) const override { return {}; }
    void setFar(const std::string& key, const Value&, const std::string&, LinkCore::Time reported) override {
        expect(key.starts_with("SITE2."), "far values stand under their link");
        expect(reported <= now, "no value is of a time to come");
        values.insert(key);
    }
    void makeStale(const std::string&, const std::vector<std::string>&, const std::string&) override {}
    void open(const std::string&, int, int) override {}
    void watch(const std::string&) override {}
    void close(const std::string&) override {}
    std::uint64_t send(const std::string&, const std::string& fid, const FIDParameterList&,
                       const std::string&) override {
        expect(fid.starts_with("A."), "a FID to whom nobody may send is not done");
        done.push_back({++number, EOutcome::Done, {}});
        return number;
    }
    std::vector<Outcome> outcomes(const std::string&) override { return std::exchange(done, {}); }
    std::string path() const override { return {}; }
    void setStateValue(const std::string&, const std::string&) override {}
    void setStateValueFloat(const std::string&, float) override {}
    void setStateValueInt(const std::string&, int) override {}
    void setStateValueBool(const std::string&, bool) override {}
    void unsetStateValue(const std::string& key) override { values.erase("SITE2." + key); }
    void triggerEvent(const std::string&, const std::string&) override {}

    LinkCore::Time now{};
    std::uint64_t number = 0;
    std::vector<Outcome> done;
    std::set<std::string> values;
};

class Broker final : public IBroker {
public:
    bool publish(const LinkMessage& message) override {
        expect(message.topic.starts_with("mf/1/SITE1/"), "a site writes to its own tree alone");
        expect(message.topic.find("SECRET") == std::string::npos, "what is not exported is not said");
        expect(LinkTopics::parse(message.topic).has_value(), "what is said can be read");
        return true;
    }
    bool subscribe(const std::string&) override { return true; }
    std::size_t pending() const override { return 0; }
};

class Link final : public ILink {
public:
    explicit Link(Host& host) : m_host(host) {
        m_settings.site = "SITE1";
        m_settings.farSite = "SITE2";
        m_settings.exported.ids = {"A"};
        m_settings.imported.ids = {"B"};
        m_settings.allowed.ids = {"A"};
        m_settings.spread = 0s;
    }
    const std::string& driverID() const override { return m_settings.farSite; }
    const LinkSettings& settings() const override { return m_settings; }
    IPanelState& panel() const override { return m_host; }
    void say(sal::LogOutput::ELevel, const std::string&) const override { ++lines; }

    mutable std::size_t lines = 0;

private:
    Host& m_host;
    LinkSettings m_settings;
};

std::vector<std::string> split(std::string_view text, char by) {
    std::vector<std::string> parts;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(by, begin), text.size());
        parts.emplace_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

template <class Value, class Read>
void expectSame(const std::optional<Value>& value, Read read) {
    if (value)
        expect(read(linkpayload::text(*value)) == value, "what was read is written and read as the same");
}

void readAlone(const std::string& topic, const std::string& payload) {
    if (const auto parts = LinkTopics::parse(topic)) {
        expect(LinkTopics::decoded(LinkTopics::encoded(parts->site)) == parts->site, "a level is read back");
        if (parts->kind == LinkTopics::EKind::State)
            expect(LinkTopics::state(parts->site, parts->driver, parts->name) == topic,
                   "one name has one topic");
    }
    // A time is told in milliseconds, and a number that is none is not equal to itself.
    const auto up = linkpayload::up(payload);
    if (up)
        expect(linkpayload::up(linkpayload::text(*up)).has_value(), "a word on the site is read back");
    if (const auto state = linkpayload::state(payload))
        expect(linkpayload::state(linkpayload::text(*state)).has_value(), "a value is read back");
    if (const auto event = linkpayload::event(payload))
        expect(linkpayload::event(linkpayload::text(*event)).has_value(), "an event is read back");
    expectSame(linkpayload::sums(payload), [](const std::string& text) { return linkpayload::sums(text); });
    expectSame(linkpayload::reply(payload), [](const std::string& text) { return linkpayload::reply(text); });
    if (const auto heard = linkpayload::heard(payload, "SITE1")) {
        const auto tick = linkpayload::Tick{"b", 1};
        expect(linkpayload::heard(linkpayload::text(tick, {}, {*heard}), "SITE1") == heard,
               "what was heard is read back");
    }
    if (const auto parameters = linkpayload::parameters(payload)) {
        const auto text = linkpayload::text(*parameters);
        expect(text && linkpayload::parameters(*text).has_value(), "parameters are read back");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    Host host;
    Broker broker;
    Link link(host);
    LinkCore::Time now = LinkCore::Time() + 1h;
    host.now = now;
    LinkCore core(
        "SITE1", "b1", host, [](auto longest) { return longest; }, now);
    core.add(link, now);
    core.connected(broker, now);
    std::set<std::string> ids;
    for (const std::string& part : split(input, s_betweenMessages)) {
        std::vector<std::string> fields = split(part, s_betweenFields);
        fields.resize(9);
        const std::string& flags = fields[0];
        now += std::chrono::milliseconds(flags.empty() ? 0 : 20 * static_cast<unsigned char>(flags[0]));
        host.now = now;
        core.step(now);
        readAlone(fields[1], fields[2]);
        const LinkMessage message{
            .topic = fields[1],
            .payload = fields[2],
            .isRetained = flags.find('r') != std::string::npos,
            .responseTopic = fields[7],
            .correlation = fields[8],
            .properties = {{"from", fields[3]}, {"id", fields[4]}, {"path", fields[5]}, {"tick", fields[6]}}};
        const std::uint64_t before = host.number;
        core.received(message, now);
        if (host.number != before) {
            expect(host.number == before + 1, "a message is one FID");
            expect(!message.isRetained, "what the broker has kept is not done");
            expect(fields[3] == "SITE2", "what nobody has sent is not done");
            expect(fields[6].starts_with("b1:"), "what names no tick of this site is not done");
            expect(ids.insert(fields[4]).second, "nothing is done twice");
        }
        core.step(now);
    }
    expect(host.values.size() <= LinkCore::s_mostValues, "not more values are kept than there may be");
    core.lost("the input has ended", now);
    return 0;
}
