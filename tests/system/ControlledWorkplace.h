#pragma once

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

#include "ConsoleWorkplace.h"

/// Base of the tests that use the real remote control, and other programs, at a real host.
class ControlledWorkplace : public ConsoleWorkplace {
protected:
    struct Answer {
        int exitCode = -1;
        std::string text;  ///< of both its streams
    };

    HostProcess& startControlled(const std::string& more = {}) {
        workplace().addModule("Echo");
        workplace().configure(entry("E", "queue") + entry("G", "direct") + more);
        return startAndWait({"--control", socket()});
    }
    std::string socket() { return workplace().directory() / "control"; }

    static Answer execute(const std::string& command) {
        Answer answer;
        FILE* const pPipe = ::popen((command + " 2>&1").c_str(), "r");
        std::array<char, 4096> piece{};
        while (const auto count = std::fread(piece.data(), 1, piece.size(), pPipe))
            answer.text.append(piece.data(), count);
        const int status = ::pclose(pPipe);
        answer.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return answer;
    }
    Answer mfctl(const std::string& arguments) {
        return execute((TestWorkplace::build() / "bin/mfctl").string() + " --host " + socket() + " " +
                       arguments);
    }
    Answer ask(const std::string& path, const std::string& body = {}) {
        const std::string data =
            body.empty() ? body : " -H 'Content-Type: application/json' -d '" + body + "'";
        return execute("curl -s --max-time 60 --unix-socket " + socket() + data + " http://localhost" + path);
    }
};
