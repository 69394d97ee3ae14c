#include "HostSocket.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "ApiClient.h"
#include "ControlError.h"
#include "RemoteControl.h"

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::milliseconds s_patience{2'000};

struct Answering {
    std::string socket;
    std::string workplace;  ///< empty where it does not tell the caller
    std::string refusal;    ///< why it does not
    std::string service;    ///< NAME of mfhost@NAME; empty where it is no service
};

/// Whether the host at the socket is the one that is named.
bool isNamed(const Answering& host, const std::string& name) {
    const fs::path workplace(host.workplace);
    return name == host.workplace || name == workplace.filename() || name == workplace.stem() ||
           name == host.service || name == fs::path(host.socket).stem();
}

std::string listed(const std::vector<Answering>& hosts) {
    std::string text;
    for (const Answering& host : hosts) {
        text += text.empty() ? "" : ", ";
        const std::string& about = host.refusal.empty() ? host.workplace : host.refusal;
        text += host.socket + (about.empty() ? "" : " (" + about + ")");
    }
    return text;
}

}  // namespace

HostSocket HostSocket::ofMachine() {
    std::vector<std::string> directories;
    if (const char* pRuntime = std::getenv("XDG_RUNTIME_DIR"); pRuntime && *pRuntime)
        directories.emplace_back(pRuntime);
    directories.emplace_back("/run");
    return HostSocket(std::move(directories), "/run/mfhost");
}

std::vector<std::string> HostSocket::candidates() const {
    std::vector<std::string> directories = m_directories;
    std::error_code none;
    for (fs::directory_iterator entry(m_services, none), end; !none && entry != end; entry.increment(none))
        directories.push_back(entry->path().string());
    std::vector<std::string> found;
    for (const std::string& directory : directories) {
        std::error_code failed;
        for (fs::directory_iterator entry(directory, failed), end; !failed && entry != end;
             entry.increment(failed)) {
            const std::string name = entry->path().filename().string();
            std::error_code ignored;
            if (name.starts_with("mfhost") && name.ends_with(".sock") && entry->is_socket(ignored))
                found.push_back(entry->path().string());
        }
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

std::string HostSocket::find(const std::string& name) const {
    if (name.find('/') != std::string::npos)
        return name;
    std::vector<Answering> hosts;
    std::string silent;
    for (const std::string& socket : candidates()) {
        try {
            const ApiClient::Reply reply = ApiClient(socket).get("", s_patience);
            const fs::path directory = fs::path(socket).parent_path();
            const bool isService = !m_services.empty() && directory.parent_path() == m_services;
            hosts.push_back({socket, reply.view().text("workplace"),
                             reply.isError() ? RemoteControl::errorText(reply) : std::string(),
                             isService ? directory.filename().string() : std::string()});
        } catch (const ControlError& error) {
            // One whose socket is left is not there; one that does not answer may be the one that is meant.
            if (error.exit() == EExit::NotFinished || error.exit() == EExit::NotAllowed)
                silent += (silent.empty() ? "" : "; ") + std::string(error.what());
        }
    }
    const std::string further = silent.empty() ? "" : "; " + silent;
    if (!name.empty()) {
        std::vector<Answering> named;
        std::copy_if(hosts.begin(), hosts.end(), std::back_inserter(named),
                     [&](const Answering& host) { return isNamed(host, name); });
        if (named.empty())
            throw ControlError(EExit::NoHost, "no host answers for \"" + name + "\"" +
                                                  (hosts.empty() ? "" : "; there is " + listed(hosts)) +
                                                  further);
        hosts = std::move(named);
    }
    if (hosts.size() > 1)
        throw ControlError(EExit::WrongUsage,
                           "several hosts answer, --host tells which is meant: " + listed(hosts));
    if (!hosts.empty())
        return hosts.front().socket;
    std::string places;
    for (const std::string& directory : m_directories)
        places += (places.empty() ? "" : " or ") + directory;
    if (!m_services.empty())
        places += " or " + m_services + "/*";
    throw ControlError(EExit::NoHost, "no host answers at a mfhost*.sock in " + places + further);
}
