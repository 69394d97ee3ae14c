#include "DriverStates.h"

#include <array>
#include <cstddef>

namespace {

using enum EDriverState;

constexpr std::size_t s_states = static_cast<std::size_t>(Parked) + 1;
constexpr std::size_t s_events = static_cast<std::size_t>(EDriverEvent::ParkIsOver) + 1;
constexpr std::optional<EDriverState> never;

using Row = std::array<std::optional<EDriverState>, s_events>;

/// A row a state, a column an event, both in the order of their enumerators.
constexpr std::array<Row, s_states> s_next{{
    // clang-format off
    // NotLoaded
    {Starting, never, never, Running, never, never, never, NotLoaded, never, never, never, never, Parking, never},
    // Starting; a start that was broken off by an exception leaves it so
    {Starting, never, never, Running, never, never, never, NotLoaded, Waiting, Ended, never, Ended, Parking, never},
    // Running; the end of the instance before need not have been seen when another one begins
    {never, Unloading, never, Running, Hung, Ended, Waiting, Running, never, never, never, never, Parking, never},
    // Hung
    {never, Unloading, never, Running, Hung, Ended, Waiting, Hung, never, never, never, never, Parking, never},
    // Unloading; where nothing came in its place, the former instance goes on until it ends
    {never, Unloading, never, Running, Unloading, Starting, never, Running, never, never, never, never, Parking, never},
    // Waiting
    {Starting, never, never, Running, never, never, never, Waiting, never, never, Due, Ended, Parking, never},
    // Due
    {Starting, never, Starting, Running, never, never, never, Due, never, never, never, Ended, Parking, never},
    // Ended
    {Starting, never, never, Running, never, never, never, Ended, never, never, never, Ended, Parking, never},
    // Parking
    {Starting, Unloading, never, never, Parking, Parking, never, Parking, never, never, never, never, Parking, Parked},
    // Parked; the process may end late
    {Starting, Unloading, never, never, Parked, Parked, never, Parked, never, never, never, never, Parking, never},
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
