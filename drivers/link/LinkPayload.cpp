#include "LinkPayload.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <limits>
#include <nlohmann/json.hpp>
#include <type_traits>
#include <utility>

#include "Printable.h"
#include "TimeText.h"

namespace linkpayload {
namespace {

using Json = nlohmann::json;

constexpr std::size_t s_mostParameters = 255;
constexpr std::size_t s_longestText = 255;
/// An hour, in microseconds: more than a word is kept by a site that lives.
constexpr std::uint64_t s_longestHold = 3'600'000'000;
/// As the shortest text of the largest float has it, which lies beyond that float.
constexpr double s_largestFloat = 3.4028235e38;
constexpr std::array<const char*, 4> s_outcomes{"done", "refused", "expired", "not known"};

std::optional<Json> object(std::string_view bytes) {
    Json json = Json::parse(bytes, nullptr, false);
    if (!json.is_object())
        return std::nullopt;
    return json;
}

/// Nothing where there is no member of that name and type.
template <class Type>
std::optional<Type> memberOf(const Json& json, const char* pName, bool (Json::*isOfType)() const noexcept) {
    const auto found = json.find(pName);
    if (found == json.end() || !((*found).*isOfType)())
        return std::nullopt;
    return found->get<Type>();
}

std::optional<std::string> textOf(const Json& json, const char* pName) {
    return memberOf<std::string>(json, pName, &Json::is_string);
}

std::optional<bool> flagOf(const Json& json, const char* pName) {
    return memberOf<bool>(json, pName, &Json::is_boolean);
}

std::optional<std::uint64_t> numberOf(const Json& json, const char* pName) {
    return memberOf<std::uint64_t>(json, pName, &Json::is_number_unsigned);
}

std::optional<Time> timeOf(const Json& json, const char* pName) {
    const auto found = textOf(json, pName);
    return found ? base::utcTime(*found) : std::nullopt;
}

std::string field(const char* pName, const std::string& value) {
    return "\"" + std::string(pName) + "\": " + value;
}

std::string timeField(const char* pName, Time time) {
    return field(pName, "\"" + base::utcText(time) + "\"");
}

std::string textField(const char* pName, const std::string& value) {
    return field(pName, base::jsonText(value));
}

/// As it is read back to the same bits; JSON has no word for what is no finite number.
std::string floatText(float number) {
    if (!std::isfinite(number))
        return std::isnan(number) ? R"("nan")" : number > 0 ? R"("inf")" : R"("-inf")";
    std::array<char, 64> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return {text.data(), end};
}

std::string valueFields(const ILinkHost::Value& value) {
    return std::visit(
        [](const auto& known) {
            using Type = std::decay_t<decltype(known)>;
            if constexpr (std::is_same_v<Type, bool>)
                return field("v", known ? "true" : "false") + R"(, "t": "bool")";
            else if constexpr (std::is_same_v<Type, int>)
                return field("v", std::to_string(known)) + R"(, "t": "int")";
            else if constexpr (std::is_same_v<Type, float>)
                return field("v", floatText(known)) + R"(, "t": "float")";
            else
                return textField("v", known) + R"(, "t": "string")";
        },
        value);
}

std::optional<ILinkHost::Value> floatOf(const Json& json) {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    if (json == "nan")
        return std::numeric_limits<float>::quiet_NaN();
    if (json == "inf")
        return infinity;
    if (json == "-inf")
        return -infinity;
    if (!json.is_number())
        return std::nullopt;
    const double number = json.get<double>();
    if (std::abs(number) > s_largestFloat)
        return std::nullopt;
    return static_cast<float>(number);
}

std::optional<ILinkHost::Value> intOf(const Json& json) {
    if (!json.is_number_integer())
        return std::nullopt;
    // What is beyond the signed numbers is none of ours either way.
    const auto number = json.get<std::int64_t>();
    if (number < std::numeric_limits<int>::min() || number > std::numeric_limits<int>::max() ||
        (json.is_number_unsigned() && json.get<std::uint64_t>() > std::numeric_limits<int>::max()))
        return std::nullopt;
    return static_cast<int>(number);
}

std::optional<ILinkHost::Value> valueOf(const Json& json) {
    const auto type = textOf(json, "t");
    const auto value = json.find("v");
    if (!type || value == json.end())
        return std::nullopt;
    if (*type == "string" && value->is_string())
        return value->get<std::string>();
    if (*type == "bool" && value->is_boolean())
        return value->get<bool>();
    if (*type == "int")
        return intOf(*value);
    if (*type == "float")
        return floatOf(*value);
    return std::nullopt;
}

}  // namespace

const char* inWords(EOutcome outcome) {
    return s_outcomes.at(static_cast<std::size_t>(outcome));
}

std::optional<Tick> Tick::parse(std::string_view text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos || colon == 0)
        return std::nullopt;
    Tick tick{std::string(text.substr(0, colon)), 0};
    const char* const pEnd = text.data() + text.size();
    const auto [end, fault] = std::from_chars(text.data() + colon + 1, pEnd, tick.number);
    if (fault != std::errc() || end != pEnd)
        return std::nullopt;
    return tick;
}

std::string text(const Up& up) {
    if (!up.isUp)
        return R"({"up": false, )" + textField("boot", up.boot) + "}";
    return R"({"up": true, )" + textField("boot", up.boot) + ", " + timeField("since", up.since) + ", " +
           field("complete", up.isComplete ? "true" : "false") +
           (up.from == 0 ? std::string() : ", " + field("from", std::to_string(up.from))) + "}";
}

std::string text(const State& state) {
    return "{" + valueFields(state.value) + ", " + timeField("at", state.at) + ", " +
           textField("boot", state.boot) + ", " + field("n", std::to_string(state.number)) +
           (state.staleCause.empty() ? std::string() : ", " + textField("stale", state.staleCause)) + "}";
}

std::string text(const Event& event) {
    return "{" + textField("v", event.value) + ", " + timeField("at", event.at) + ", " +
           textField("id", event.id) + "}";
}

std::string text(const Tick& tick, Time at, const std::vector<Heard>& heard) {
    std::string sites;
    for (const Heard& one : heard)
        sites += (sites.empty() ? "" : ", ") + base::jsonText(one.site) + ": {" +
                 textField("tick", one.tick.text()) + ", " + field("us", std::to_string(one.ago.count())) +
                 (one.isAsking ? ", " + field("anew", "true") : std::string()) + "}";
    return "{" + textField("boot", tick.boot) + ", " + field("tick", std::to_string(tick.number)) + ", " +
           timeField("at", at) + (sites.empty() ? std::string() : ", " + field("heard", "{" + sites + "}")) +
           "}";
}

std::string text(const Sums& sums) {
    std::string drivers;
    for (const auto& [driver, sum] : sums.drivers)
        drivers += (drivers.empty() ? "" : ", ") + base::jsonText(driver) + ": [" +
                   std::to_string(sum.count) + ", " + std::to_string(sum.numbers) + "]";
    return "{" + textField("boot", sums.boot) + ", " + field("told", "{" + drivers + "}") + "}";
}

std::string text(const Reply& reply) {
    return "{" + textField("outcome", inWords(reply.outcome)) +
           (reply.text.empty() ? std::string() : ", " + textField("text", reply.text)) + "}";
}

std::optional<std::string> text(const FIDParameterList& parameters) {
    Json pairs = Json::array();
    for (const auto& [name, value] : parameters)
        pairs.push_back(Json::array({name, value}));
    try {
        return R"({"p": )" + pairs.dump() + "}";
    } catch (const Json::type_error&) {
        return std::nullopt;
    }
}

std::optional<Up> up(std::string_view bytes) {
    const auto json = object(bytes);
    if (!json)
        return std::nullopt;
    const auto isUp = flagOf(*json, "up");
    auto boot = textOf(*json, "boot");
    if (!isUp || !boot || boot->empty())
        return std::nullopt;
    if (!*isUp)
        return Up{false, std::move(*boot)};
    const auto since = timeOf(*json, "since");
    if (!since)
        return std::nullopt;
    return Up{true, std::move(*boot), *since, flagOf(*json, "complete").value_or(false),
              numberOf(*json, "from").value_or(0)};
}

std::optional<State> state(std::string_view bytes) {
    const auto json = object(bytes);
    if (!json)
        return std::nullopt;
    auto value = valueOf(*json);
    const auto at = timeOf(*json, "at");
    auto boot = textOf(*json, "boot");
    const auto number = numberOf(*json, "n");
    if (!value || !at || !boot || !number || (json->contains("stale") && !textOf(*json, "stale")))
        return std::nullopt;
    return State{std::move(*value), *at, std::move(*boot), *number, textOf(*json, "stale").value_or("")};
}

std::optional<Event> event(std::string_view bytes) {
    const auto json = object(bytes);
    if (!json)
        return std::nullopt;
    auto value = textOf(*json, "v");
    const auto at = timeOf(*json, "at");
    auto id = textOf(*json, "id");
    if (!value || !at || !id || !Tick::parse(*id))
        return std::nullopt;
    return Event{std::move(*value), *at, std::move(*id)};
}

std::optional<Tick> tick(std::string_view bytes) {
    const auto json = object(bytes);
    if (!json)
        return std::nullopt;
    auto boot = textOf(*json, "boot");
    const auto number = numberOf(*json, "tick");
    if (!boot || boot->empty() || !number)
        return std::nullopt;
    return Tick{std::move(*boot), *number};
}

std::optional<Time> tickTime(std::string_view bytes) {
    const auto json = object(bytes);
    return json ? timeOf(*json, "at") : std::nullopt;
}

std::optional<Heard> heard(std::string_view bytes, const std::string& site) {
    const auto json = object(bytes);
    const auto sites = json ? json->find("heard") : Json::const_iterator();
    if (!json || sites == json->end() || !sites->is_object())
        return std::nullopt;
    const auto one = sites->find(site);
    if (one == sites->end() || !one->is_object())
        return std::nullopt;
    const auto told = Tick::parse(textOf(*one, "tick").value_or(""));
    const auto ago = numberOf(*one, "us");
    if (!told || !ago || *ago > s_longestHold)
        return std::nullopt;
    return Heard{site, *told, std::chrono::microseconds(*ago), flagOf(*one, "anew").value_or(false)};
}

std::optional<Sums> sums(std::string_view bytes) {
    const auto json = object(bytes);
    auto boot = json ? textOf(*json, "boot") : std::nullopt;
    const auto drivers = json ? json->find("told") : Json::const_iterator();
    if (!boot || boot->empty() || drivers == json->end() || !drivers->is_object())
        return std::nullopt;
    Sums sums{std::move(*boot), {}};
    for (const auto& [driver, sum] : drivers->items()) {
        if (!sum.is_array() || sum.size() != 2 || !sum[0].is_number_unsigned() ||
            !sum[1].is_number_unsigned())
            return std::nullopt;
        sums.drivers[driver] = {sum[0].get<std::uint64_t>(), sum[1].get<std::uint64_t>()};
    }
    return sums;
}

std::optional<Reply> reply(std::string_view bytes) {
    const auto json = object(bytes);
    const auto outcome = json ? textOf(*json, "outcome") : std::nullopt;
    for (std::size_t i = 0; outcome && i < s_outcomes.size(); ++i) {
        if (*outcome == s_outcomes.at(i))
            return Reply{static_cast<EOutcome>(i), textOf(*json, "text").value_or("")};
    }
    return std::nullopt;
}

std::optional<FIDParameterList> parameters(std::string_view bytes) {
    const auto json = object(bytes);
    const auto pairs = json ? json->find("p") : Json::const_iterator();
    if (!json || pairs == json->end() || !pairs->is_array() || pairs->size() > s_mostParameters)
        return std::nullopt;
    FIDParameterList list;
    for (const Json& pair : *pairs) {
        if (!pair.is_array() || pair.size() != 2 || !pair[0].is_string() || !pair[1].is_string())
            return std::nullopt;
        const auto& name = pair[0].get_ref<const std::string&>();
        const auto& value = pair[1].get_ref<const std::string&>();
        if (name.size() > s_longestText || value.size() > s_longestText)
            return std::nullopt;
        list.add(name, value);
    }
    return list;
}

}  // namespace linkpayload
