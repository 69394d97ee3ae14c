#include "RemoteControl.h"

#include <utility>
#include <vector>

#include "ControlError.h"
#include "HeldUpText.h"
#include "Nearest.h"
#include "Printable.h"

namespace {

constexpr ApiClient::Milliseconds s_lookLimit{1'000};

}  // namespace

RemoteControl::RemoteControl(const Screen& screen, Options options, HostSocket socket)
    : m_screen(screen), m_options(std::move(options)), m_socket(std::move(socket)) {}

ApiClient& RemoteControl::client() {
    if (!m_pClient)
        m_pClient = std::make_unique<ApiClient>(m_socket.find(m_options.host));
    return *m_pClient;
}

ApiClient::Reply RemoteControl::ask(const std::string& target) {
    return shown(client().get(target), target);
}

ApiClient::Reply RemoteControl::act(const std::string& target, ApiClient::Json members,
                                    ApiClient::Milliseconds limit, const std::string& what) {
    return shown(client().post(target, std::move(members), limit),
                 what.empty() ? target.substr(target.rfind('/') + 1) : what);
}

/// Empty where it cannot be had at once, too.
std::string RemoteControl::whatIsUnderWay() {
    try {
        const ApiClient::Reply health = client().get("/health", s_lookLimit);
        return heldUpText(health.view());
    } catch (const ControlError&) {
        return {};
    }
}

ApiClient::Reply RemoteControl::shown(ApiClient::Reply reply, const std::string& what) {
    if (m_options.asJson)
        printJson(reply.body);
    if (reply.isError())
        throw ControlError(errorExit(reply), errorText(reply));
    if (reply.status == 202) {
        std::string text = what + " is not finished in time; it goes on";
        if (const std::string command = whatIsUnderWay(); !command.empty())
            text += "; " + command;
        throw ControlError(EExit::NotFinished, text);
    }
    return reply;
}

void RemoteControl::printJson(const std::string& body) const {
    std::string text = body;
    while (text.ends_with('\n'))
        text.pop_back();
    m_screen.out << text << std::endl;
}

std::string RemoteControl::errorText(const ApiClient::Reply& reply) {
    const JsonView error = reply.view().member("error");
    const std::string text = error.text("text");
    if (text.empty())
        return "the host answers " + std::to_string(reply.status) + " and tells no reason";
    std::vector<std::string> nearest;
    for (const JsonView& name : error.list("nearest"))
        nearest.push_back(name.text());
    return text + base::didYouMean(nearest);
}

EExit RemoteControl::errorExit(const ApiClient::Reply& reply) {
    switch (reply.status) {
        case 400:
            return EExit::WrongUsage;
        case 403:
            return EExit::NotAllowed;
        default:
            return EExit::Failed;
    }
}
