#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "FIDParameterList.h"
#include "ILinkHost.h"

/// What stands in the messages between sites: JSON, one object each, in the bytes of one line. Reading takes
/// any bytes: nothing comes back for what is no such object; what an object has besides is not read. Any
/// thread.
namespace linkpayload {

using Time = std::chrono::system_clock::time_point;

struct Up {
    bool isUp = false;
    std::string boot;         ///< of the site's instance
    Time since{};             ///< of one that is up
    bool isComplete = false;  ///< everything that there was has been published
    std::uint64_t from = 0;   ///< the number of the first value over its connection; 0 where it does not say

    bool operator==(const Up&) const = default;
};

struct State {
    ILinkHost::Value value;
    Time at{};  ///< when it was reported, by the clock that the site's ticks tell
    std::string boot;
    std::uint64_t number = 0;
    std::string staleCause;

    bool operator==(const State&) const = default;
};

struct Event {
    std::string value;
    Time at{};
    std::string id;  ///< boot ID, ":" and a number

    bool operator==(const Event&) const = default;
};

struct Tick {
    std::string boot;
    std::uint64_t number = 0;

    /// As a FID carries it: boot ID, ":" and the number.
    std::string text() const { return boot + ":" + std::to_string(number); }
    /// Nothing for any other text.
    static std::optional<Tick> parse(std::string_view text);
    bool operator==(const Tick&) const = default;
};

/// What a site has heard of another one, told with its own tick: the other one learns from it how long a word
/// takes there and back, by its own clock.
struct Heard {
    std::string site;
    Tick tick;  ///< the newest of that site
    std::chrono::microseconds ago{0};
    bool isAsking = false;  ///< it is to publish everything anew

    bool operator==(const Heard&) const = default;
};

/// What a site has told of the values of its drivers, in the order of its messages: who has others has lost
/// some.
struct Sums {
    struct Sum {
        std::uint64_t count = 0;    ///< of values
        std::uint64_t numbers = 0;  ///< the sum of their newest numbers

        bool operator==(const Sum&) const = default;
    };

    std::string boot;
    std::map<std::string, Sum> drivers;

    bool operator==(const Sums&) const = default;
};

enum class EOutcome { Done, Refused, Expired, Unknown };

struct Reply {
    EOutcome outcome = EOutcome::Unknown;
    std::string text;  ///< why it was not done

    bool operator==(const Reply&) const = default;
};

/// "done", "refused", "expired", "not known".
const char* inWords(EOutcome outcome);

std::string text(const Up& up);
std::string text(const State& state);
std::string text(const Event& event);
/// Told at that time, by the clock of the site.
std::string text(const Tick& tick, Time at, const std::vector<Heard>& heard = {});
std::string text(const Sums& sums);
std::string text(const Reply& reply);
/// Nothing where a name or a value is no UTF-8, which JSON could not hold as it is.
std::optional<std::string> text(const FIDParameterList& parameters);

std::optional<Up> up(std::string_view bytes);
std::optional<State> state(std::string_view bytes);
std::optional<Event> event(std::string_view bytes);
std::optional<Tick> tick(std::string_view bytes);
/// When the tick was told, by the clock of its site.
std::optional<Time> tickTime(std::string_view bytes);
/// Of the bytes of a tick, what is said of that site; nothing where nothing is.
std::optional<Heard> heard(std::string_view bytes, const std::string& site);
std::optional<Sums> sums(std::string_view bytes);
std::optional<Reply> reply(std::string_view bytes);
/// At most 255 parameters of at most 255 bytes each, name and value.
std::optional<FIDParameterList> parameters(std::string_view bytes);

}  // namespace linkpayload
