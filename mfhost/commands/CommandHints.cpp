#include "CommandHints.h"

#include <algorithm>
#include <string_view>

namespace {

constexpr std::string_view s_quit = "quit stops all drivers and ends the host";
constexpr std::string_view s_help = "help lists the commands";
constexpr std::string_view s_drivers = "drivers shows how the drivers are, drivers ID all of one";
constexpr std::string_view s_reload = "reloadDriver ID stops a driver and starts it again";
constexpr std::string_view s_stop = "stopDriver ID stops a driver and keeps it so; quit ends the host";
constexpr std::string_view s_start = "startDriver ID starts a driver that was stopped or has ended";
constexpr std::string_view s_send = "sendFID ID.FUNCTION NAME=VALUE ... sends a function ID";
constexpr std::string_view s_state = "state PATTERN shows values";
constexpr std::string_view s_set = "setStateValue KEY VALUE sets a value, unsetStateValue KEY takes it away";
constexpr std::string_view s_log =
    "the log goes to standard error, and with --log-file into a file; mfctl log shows it";
constexpr std::string_view s_follow = "follow PATTERN prints each change as it comes, unfollow ends that";
constexpr std::string_view s_alarms = "alarms lists the alarms, acknowledge KEY takes one off the list";
constexpr std::string_view s_macro = "sendFID PANEL.MACRO.PLAY name=NAME plays a macro";

struct Hint {
    std::string_view word;
    std::string_view hint;
};

constexpr Hint s_hints[] = {
    {"?", s_help},
    {"ack", s_alarms},
    {"alarm", s_alarms},
    {"bye", s_quit},
    {"cat", s_state},
    {"clear", s_alarms},
    {"commands", s_help},
    {"disable", s_stop},
    {"driver", s_drivers},
    {"enable", s_start},
    {"end", s_quit},
    {"event", "events lists the last events, triggerEvent ID VALUE triggers one"},
    {"exit", s_quit},
    {"fid", s_send},
    {"get", s_state},
    {"h", s_help},
    {"halt", s_quit},
    {"info", s_drivers},
    {"journal", s_log},
    {"kill", s_stop},
    {"list", s_drivers},
    {"load", s_start},
    {"log", s_log},
    {"logout", s_quit},
    {"logs", s_log},
    {"ls", s_drivers},
    {"macro", s_macro},
    {"macros", s_macro},
    {"man", s_help},
    {"monitor", s_follow},
    {"park", s_stop},
    {"play", s_macro},
    {"ps", s_drivers},
    {"q", s_quit},
    {"queue", "queues lists the message queues"},
    {"reboot", s_reload},
    {"reload", s_reload},
    {"restart", s_reload},
    {"run", s_start},
    {"send", s_send},
    {"set", s_set},
    {"show", s_state},
    {"shutdown", s_quit},
    {"start", s_start},
    {"status", s_drivers},
    {"stop", s_stop},
    {"tail", s_follow},
    {"top", s_drivers},
    {"unload", s_stop},
    {"unpark", s_start},
    {"unset", s_set},
    {"usage", s_help},
    {"values", s_state},
    {"watch", s_follow},
    {"write", s_set},
};

}  // namespace

std::string commandHint(const std::string& word) {
    const auto found = std::find_if(std::begin(s_hints), std::end(s_hints),
                                    [&](const Hint& hint) { return hint.word == word; });
    if (found == std::end(s_hints))
        return {};
    return "there is no command " + word + "; " + std::string(found->hint);
}
