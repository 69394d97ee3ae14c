#pragma once

#include <optional>

/// Where a driver is in its life; docs/architecture.md draws it.
enum class EDriverState {
    NotLoaded,  ///< configured, and not started yet
    Starting,   ///< the command thread starts it, and no instance runs yet
    Running,
    Hung,       ///< its process takes no messages and is being ended
    Unloading,  ///< the command thread starts it anew, and the former instance is still there
    Waiting,    ///< ended, and to be started again when its time comes
    Due,        ///< its time has come, and the command thread has not taken it yet
    Ended,      ///< and not to be started again
    Parking,    ///< the command thread unloads it
    Parked      ///< unloaded until an operator gives it back
};

enum class EDriverEvent {
    StartBegins,        ///< a start or reload, and no instance runs
    ReloadBegins,       ///< the same, and an instance runs
    RestartBegins,      ///< the command thread takes what is due
    InstanceBegins,     ///< it is configured in the host's process, or its process was made
    InstanceHangs,      ///< or cannot be reached any more
    InstanceEnds,       ///< and is not planned again
    InstanceEndsEarly,  ///< and is planned again
    StartIsOver,        ///< of a driver of which no process was to come, or one came
    StartFails,         ///< no process came, and another try is planned
    StartFailsForGood,  ///< no process came, and no other try is planned
    TimeComes,
    IsGivenUp,  ///< it is not tried again
    ParkBegins,
    ParkIsOver
};

/// The state after the event; nothing where the event must not happen.
std::optional<EDriverState> nextState(EDriverState state, EDriverEvent event);

/// "running", "being unloaded" and so on.
const char* inWords(EDriverState state);
/// "the start begins" and so on.
const char* inWords(EDriverEvent event);
