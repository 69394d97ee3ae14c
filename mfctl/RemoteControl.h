#pragma once

#include <memory>
#include <string>

#include "ApiClient.h"
#include "EExit.h"
#include "HostSocket.h"
#include "Screen.h"

/// What every command of mfctl that needs a host has in common: which host, how its answers are shown, and
/// what becomes of its errors. Main thread.
class RemoteControl {
public:
    struct Options {
        std::string host;     ///< of --host or MFCTL_HOST; empty: the only one
        bool asJson = false;  ///< answers are printed as they came
    };
    RemoteControl(const Screen& screen, Options options, HostSocket socket = HostSocket::ofMachine());

    const Screen& screen() const { return m_screen; }
    bool asJson() const { return m_options.asJson; }
    /// Looks for the host at the first call.
    ApiClient& client();

    /// The answer to a question or an action. With --json it has been printed. Throws a ControlError where it
    /// is an error, or not finished in time. what: how the action is called then; empty: as its target.
    ApiClient::Reply ask(const std::string& target);
    ApiClient::Reply act(const std::string& target, ApiClient::Json members = ApiClient::Json::object(),
                         ApiClient::Milliseconds limit = ApiClient::s_usualLimit,
                         const std::string& what = {});

    /// Prints the body of an answer as one line.
    void printJson(const std::string& body) const;

    /// What an error answer says, with its nearest names; and how mfctl ends then.
    static std::string errorText(const ApiClient::Reply& reply);
    static EExit errorExit(const ApiClient::Reply& reply);

private:
    ApiClient::Reply shown(ApiClient::Reply reply, const std::string& what);
    std::string whatIsUnderWay();

    const Screen m_screen;
    const Options m_options;
    const HostSocket m_socket;
    std::unique_ptr<ApiClient> m_pClient;
};
