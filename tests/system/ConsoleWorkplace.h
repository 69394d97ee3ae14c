#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "FaultyWorkplace.h"

/// Base of the tests that ask a host at its console, and wait for each answer.
class ConsoleWorkplace : public FaultyWorkplace {
protected:
    static long count(const std::string& text, const std::string& part) {
        long found = 0;
        for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
            ++found;
        return found;
    }

    static std::string entry(const std::string& driverID, const std::string& interfaceType,
                             const std::string& type = "Echo") {
        return TestWorkplace::entry(driverID, type, interfaceType);
    }
    std::string file() { return workplace().configuration(); }
    HostProcess& startAndWait(const std::vector<std::string>& options = {}) {
        return startCall(call(options));
    }
    HostProcess& startCall(HostProcess::Start call) {
        call.arguments.insert(call.arguments.end(), {"--start-wait", "attached"});
        HostProcess& host = start(call);
        EXPECT_TRUE(host.waitForLog("HOST: the workplace is started\n")) << host.log();
        return host;
    }

    /// The Echo sets what it is told to.
    static void expectSets(HostProcess& host, const std::string& driverID) {
        static int s_value = 1000;
        const std::string value = std::to_string(++s_value);
        host.type("sendFID " + driverID + ".INT name=N value=" + value);
        EXPECT_TRUE(host.repliesWith("state --now " + driverID + ".N",
                                     driverID + "\\.N +int +" + value + " +" + driverID + " +[0-9]+ s +yes"))
            << host.output() << host.log();
    }
};
