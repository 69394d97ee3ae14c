#pragma once

#include <functional>
#include <string>
#include <utility>

#include "CallLog.h"
#include "DriverHost.h"
#include "FIDParameterList.h"
#include "mfd/Driver.h"

inline FIDParameterList listOf(const std::vector<std::pair<std::string, std::string>>& pairs) {
    FIDParameterList list;
    for (const auto& [name, value] : pairs)
        list.add(name, value);
    return list;
}

/// A driver of the kit whose steps a test sets, with all that the kit gives to drivers.
class KitDriver : public mfd::Driver {
public:
    using Driver::after;
    using Driver::answer;
    using Driver::cancel;
    using Driver::every;
    using Driver::function;
    using Driver::now;
    using Driver::post;
    using Driver::sendToDriver;
    using Driver::unwatch;
    using Driver::watch;

    std::function<bool()> onStart = [] { return true; };
    std::function<void()> onStop = [] {};

    /// As a loader does it; what initializationCompleted() has returned.
    bool startIn(DriverHost& host) {
        setPanelStateInterface(&host);
        setSystemInterface(&host);
        setConfiguration(0, "LAMP1", "", "", "", "", "");
        return initializationCompleted();
    }

private:
    bool start() override { return onStart(); }
    void stop() override { onStop(); }
};
