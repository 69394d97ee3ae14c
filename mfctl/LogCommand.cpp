#include "LogCommand.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "ControlError.h"
#include "HostReturn.h"
#include "HostStream.h"
#include "LogText.h"
#include "StreamPrinter.h"

namespace {

constexpr std::chrono::milliseconds s_step{500};
/// What is asked for while the log is followed: more than come in a step.
constexpr unsigned s_window = 500;

std::string target(const LogCommand::Choice& choice, unsigned lines) {
    std::string text = "/log?lines=" + std::to_string(lines);
    if (!choice.driver.empty())
        text += "&driver=" + ApiClient::encoded(choice.driver);
    if (choice.level > 0)
        text += "&level=" + std::to_string(choice.level);
    return text;
}

}  // namespace

EExit LogCommand::show(const Choice& choice) {
    const ApiClient::Reply reply = m_control.ask(target(choice, choice.lines));
    if (m_control.asJson())
        return EExit::Done;
    for (const JsonView& line : reply.view().list("lines"))
        m_control.screen().out << logText(line, m_control.screen()) << "\n";
    m_control.screen().out << std::flush;
    return EExit::Done;
}

std::size_t LogCommand::known(const std::vector<std::string>& before, const std::vector<std::string>& now) {
    for (std::size_t count = std::min(before.size(), now.size()); count > 0; --count) {
        if (std::equal(before.end() - static_cast<std::ptrdiff_t>(count), before.end(), now.begin()))
            return count;
    }
    return 0;
}

EExit LogCommand::follow(const Choice& choice) {
    const Screen& screen = m_control.screen();
    std::string query = "kinds=log,output";
    if (!choice.driver.empty())
        query += "&drivers=" + ApiClient::encoded(choice.driver);
    if (choice.level > 0)
        query += "&level=" + std::to_string(choice.level);
    // Who is asked for a driver that there is not says so.
    if (!choice.driver.empty()) {
        const ApiClient::Reply reply = m_control.client().get(target(choice, 1));
        if (reply.isError())
            throw ControlError(RemoteControl::errorExit(reply), RemoteControl::errorText(reply));
    }
    const auto print = [&](const JsonView& record, const std::string& json) {
        if (m_control.asJson())
            screen.out << json << std::endl;
        else if (record.text("kind") == "gap")
            screen.out << screen.coloured(StreamPrinter::colourOf("gap"), record.text("line")) << std::endl;
        else
            screen.out << logText(record, screen) << std::endl;
        return static_cast<bool>(screen.out);
    };
    if (HostStream(m_control.client(), screen).read(query, choice.lines, true, print))
        return EExit::Failed;
    return poll(choice);
}

/// Of a host that does not record.
EExit LogCommand::poll(const Choice& choice) {
    const Screen& screen = m_control.screen();
    HostReturn host(m_control.client(), screen);
    std::vector<std::string> before;
    for (bool isFirst = true;; std::this_thread::sleep_for(s_step)) {
        const ApiClient::Reply reply = host.ask(target(choice, std::max(s_window, choice.lines)));
        if (reply.isError())
            throw ControlError(RemoteControl::errorExit(reply), RemoteControl::errorText(reply));
        if (host.isAnother())
            before.clear();
        const std::vector<JsonView> lines = reply.view().list("lines");
        std::vector<std::string> now;
        now.reserve(lines.size());
        for (const JsonView& line : lines)
            now.push_back(line.json());
        std::size_t first = known(before, now);
        if (isFirst && now.size() > choice.lines)
            first = now.size() - choice.lines;
        else if (first == 0 && !before.empty() && !now.empty())
            screen.complain("more lines came than the host keeps; some are missing here");
        for (std::size_t i = first; i < now.size(); ++i)
            screen.out << (m_control.asJson() ? now[i] : logText(lines[i], screen)) << "\n";
        screen.out << std::flush;
        if (!screen.out)
            return EExit::Failed;
        before = std::move(now);
        isFirst = false;
    }
}
