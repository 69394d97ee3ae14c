#include "DriverStates.h"

#include <array>
#include <cstddef>

namespace {

using enum EDriverState;

constexpr std::size_t s_states = static_cast<std::size_t>(Parked) + 1;
constexpr std::size_t s_events = static_cast<std::size_t>(EDriverEvent::ParkIsOver) + 1;
constexpr std::optional<EDriverState> s_never;

using Row = std::array<std::optional<EDriverState>, s_events>;

/// A row a state, a column an event, both in the order of their enumerators.
constexpr std::array<Row, s_states> s_next{{
    // clang-format off
    // NotLoaded
    {Starting, s_never, s_never, Running, s_never, s_never, s_never, NotLoaded, s_never, s_never, s_never, s_never, Parking, s_never},
    // Starting; a start that was broken off by an exception leaves it so
    {Starting, s_never, s_never, Running, s_never, s_never, s_never, NotLoaded, Waiting, Ended, s_never, Ended, Parking, s_never},
    // Running; the end of the instance before need not have been seen when another one begins
    {s_never, Unloading, s_never, Running, Hung, Ended, Waiting, Running, s_never, s_never, s_never, s_never, Parking, s_never},
    // Hung
    {s_never, Unloading, s_never, Running, Hung, Ended, Waiting, Hung, s_never, s_never, s_never, s_never, Parking, s_never},
    // Unloading; where nothing came in its place, the former instance goes on until it ends
    {s_never, Unloading, s_never, Running, Unloading, Starting, s_never, Running, s_never, s_never, s_never, s_never, Parking, s_never},
    // Waiting
    {Starting, s_never, s_never, Running, s_never, s_never, s_never, Waiting, s_never, s_never, Due, Ended, Parking, s_never},
    // Due
    {Starting, s_never, Starting, Running, s_never, s_never, s_never, Due, s_never, s_never, s_never, Ended, Parking, s_never},
    // Ended
    {Starting, s_never, s_never, Running, s_never, s_never, s_never, Ended, s_never, s_never, s_never, Ended, Parking, s_never},
    // Parking
    {Starting, Unloading, s_never, s_never, Parking, Parking, s_never, Parking, s_never, s_never, s_never, s_never, Parking, Parked},
    // Parked; the process may end late
    {Starting, Unloading, s_never, s_never, Parked, Parked, s_never, Parked, s_never, s_never, s_never, s_never, Parking, s_never},
    // clang-format on
}};

}  // namespace

std::optional<EDriverState> nextState(EDriverState state, EDriverEvent event) {
    return s_next.at(static_cast<std::size_t>(state)).at(static_cast<std::size_t>(event));
}

const char* inWords(EDriverState state) {
    static constexpr std::array<const char*, s_states> s_words{"not loaded", "starting", "running", "hung",
                                                               "unloading",  "waiting",  "due",     "ended",
                                                               "parking",    "parked"};
    return s_words.at(static_cast<std::size_t>(state));
}

const char* inWords(EDriverEvent event) {
    static constexpr std::array<const char*, s_events> s_words{
        "the start begins",   "the reload begins",        "the restart begins",      "an instance begins",
        "the instance hangs", "the instance ends",        "the instance ends early", "the start is over",
        "the start fails",    "the start fails for good", "its time comes",          "it is given up",
        "the parking begins", "the parking is over"};
    return s_words.at(static_cast<std::size_t>(event));
}
