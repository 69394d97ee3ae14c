#include "DriverStates.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

using enum EDriverState;
using enum EDriverEvent;

const std::vector<std::pair<EDriverState, std::string>> c_states{
    {NotLoaded, "not loaded"}, {Starting, "starting"}, {Running, "running"}, {Hung, "hung"},
    {Unloading, "unloading"},  {Waiting, "waiting"},   {Due, "due"},         {Ended, "ended"},
    {Parking, "parking"},      {Parked, "parked"}};

const std::vector<std::pair<EDriverEvent, std::string>> c_events{
    {StartBegins, "the start begins"},
    {ReloadBegins, "the reload begins"},
    {RestartBegins, "the restart begins"},
    {InstanceBegins, "an instance begins"},
    {InstanceHangs, "the instance hangs"},
    {InstanceEnds, "the instance ends"},
    {InstanceEndsEarly, "the instance ends early"},
    {StartIsOver, "the start is over"},
    {StartFails, "the start fails"},
    {StartFailsForGood, "the start fails for good"},
    {TimeComes, "its time comes"},
    {IsGivenUp, "it is given up"},
    {ParkBegins, "the parking begins"},
    {ParkIsOver, "the parking is over"}};

/// What may happen, event by event; what does not stand here must not.
const std::map<std::pair<EDriverEvent, EDriverState>, EDriverState> c_transitions{
    // A command begins to start what does not run.
    {{StartBegins, NotLoaded}, Starting},
    {{StartBegins, Starting}, Starting},
    {{StartBegins, Waiting}, Starting},
    {{StartBegins, Due}, Starting},
    {{StartBegins, Ended}, Starting},
    {{StartBegins, Parking}, Starting},
    {{StartBegins, Parked}, Starting},
    // A command begins to load anew what runs.
    {{ReloadBegins, Running}, Unloading},
    {{ReloadBegins, Hung}, Unloading},
    {{ReloadBegins, Unloading}, Unloading},
    {{ReloadBegins, Parking}, Unloading},
    {{ReloadBegins, Parked}, Unloading},
    // The host begins to start what is due, and nothing else.
    {{RestartBegins, Due}, Starting},
    // An instance may come up at any time, but for a driver that is not to run.
    {{InstanceBegins, NotLoaded}, Running},
    {{InstanceBegins, Starting}, Running},
    {{InstanceBegins, Running}, Running},
    {{InstanceBegins, Hung}, Running},
    {{InstanceBegins, Unloading}, Running},
    {{InstanceBegins, Waiting}, Running},
    {{InstanceBegins, Due}, Running},
    {{InstanceBegins, Ended}, Running},
    // Only an instance hangs.
    {{InstanceHangs, Running}, Hung},
    {{InstanceHangs, Hung}, Hung},
    {{InstanceHangs, Unloading}, Unloading},
    {{InstanceHangs, Parking}, Parking},
    {{InstanceHangs, Parked}, Parked},
    // Only an instance ends. During a reload the next one comes.
    {{InstanceEnds, Running}, Ended},
    {{InstanceEnds, Hung}, Ended},
    {{InstanceEnds, Unloading}, Starting},
    {{InstanceEnds, Parking}, Parking},
    {{InstanceEnds, Parked}, Parked},
    // Nobody asked for this end.
    {{InstanceEndsEarly, Running}, Waiting},
    {{InstanceEndsEarly, Hung}, Waiting},
    // Where nothing came up, all is as if the start had not been.
    {{StartIsOver, NotLoaded}, NotLoaded},
    {{StartIsOver, Starting}, NotLoaded},
    {{StartIsOver, Running}, Running},
    {{StartIsOver, Hung}, Hung},
    {{StartIsOver, Unloading}, Running},
    {{StartIsOver, Waiting}, Waiting},
    {{StartIsOver, Due}, Due},
    {{StartIsOver, Ended}, Ended},
    {{StartIsOver, Parking}, Parking},
    {{StartIsOver, Parked}, Parked},
    {{StartFails, Starting}, Waiting},
    {{StartFailsForGood, Starting}, Ended},
    {{TimeComes, Waiting}, Due},
    // What has no instance can be given up.
    {{IsGivenUp, Starting}, Ended},
    {{IsGivenUp, Waiting}, Ended},
    {{IsGivenUp, Due}, Ended},
    {{IsGivenUp, Ended}, Ended},
    // An operator may park whatever there is.
    {{ParkBegins, NotLoaded}, Parking},
    {{ParkBegins, Starting}, Parking},
    {{ParkBegins, Running}, Parking},
    {{ParkBegins, Hung}, Parking},
    {{ParkBegins, Unloading}, Parking},
    {{ParkBegins, Waiting}, Parking},
    {{ParkBegins, Due}, Parking},
    {{ParkBegins, Ended}, Parking},
    {{ParkBegins, Parking}, Parking},
    {{ParkBegins, Parked}, Parking},
    {{ParkIsOver, Parking}, Parked}};

}  // namespace

TEST(DriverStates, EachEventLeadsFromEachStateWhereItMustAndNowhereElse) {
    std::size_t compared = 0;
    for (const auto& [state, stateWords] : c_states) {
        for (const auto& [event, eventWords] : c_events) {
            const auto expected = c_transitions.find({event, state});
            const auto next = nextState(state, event);
            ++compared;
            if (expected == c_transitions.end())
                EXPECT_FALSE(next) << stateWords << ", " << eventWords << ": " << inWords(*next);
            else
                EXPECT_EQ(expected->second, next) << stateWords << ", " << eventWords;
        }
    }
    EXPECT_EQ(10u * 14u, compared);
}

TEST(DriverStates, NoStateIsADeadEnd) {
    for (const auto& [state, words] : c_states) {
        const bool canRun = nextState(state, StartBegins) || nextState(state, ReloadBegins);
        EXPECT_TRUE(canRun) << words;
        EXPECT_EQ(Parking, nextState(state, ParkBegins)) << words;
    }
}

TEST(DriverStates, EachStateHasItsWords) {
    for (const auto& [state, words] : c_states)
        EXPECT_EQ(words, inWords(state));
}

TEST(DriverStates, EachEventHasItsWords) {
    for (const auto& [event, words] : c_events)
        EXPECT_EQ(words, inWords(event));
}
