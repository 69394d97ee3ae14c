#include "OwnBroker.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <utility>

#include "Patience.h"
#include "RunProgram.h"
#include "UniqueFd.h"

namespace {

constexpr const char* s_program = "/usr/sbin/mosquitto";

sockaddr_in address(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

base::UniqueFd tcpSocket() {
    return base::UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

void write(const std::string& path, const std::string& text) {
    if (!(std::ofstream(path) << text << std::flush))
        throw std::runtime_error(path + " cannot be written");
}

}  // namespace

OwnBroker::OwnBroker(std::string directory, const std::string& users, const std::string& rights,
                     const std::string& settings)
    : m_directory(std::move(directory)), m_port(freePort()) {
    write(m_directory + "/passwords", users);
    write(m_directory + "/rights", rights);
    runProgram({"mosquitto_passwd", "-U", m_directory + "/passwords"});
    write(m_directory + "/broker.conf", "listener " + std::to_string(m_port) +
                                            " 127.0.0.1\nuser root\nallow_anonymous false\npassword_file " +
                                            m_directory + "/passwords\nacl_file " + m_directory +
                                            "/rights\nsys_interval 1\nlog_dest file " + m_directory +
                                            "/broker.log\n" + settings);
}

int OwnBroker::freePort() {
    const base::UniqueFd trial = tcpSocket();
    sockaddr_in any = address(0);
    socklen_t length = sizeof any;
    if (::bind(trial.get(), reinterpret_cast<sockaddr*>(&any), length) != 0 ||
        ::getsockname(trial.get(), reinterpret_cast<sockaddr*>(&any), &length) != 0)
        throw std::runtime_error("there is no free port on 127.0.0.1");
    return ntohs(any.sin_port);
}

void OwnBroker::start() {
    const std::string file = m_directory + "/broker.conf";
    const std::string output = m_directory + "/broker.out";
    m_pProcess = std::make_unique<ChildProcess>([&] {
        const int fd = ::open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        ::dup2(fd, STDOUT_FILENO);
        ::dup2(fd, STDERR_FILENO);
        ::execl(s_program, s_program, "-c", file.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    });
    waitUntil(std::string(s_program) + " that listens (" + output + " has what it says)", [this] {
        const base::UniqueFd trial = tcpSocket();
        const sockaddr_in here = address(m_port);
        return ::connect(trial.get(), reinterpret_cast<const sockaddr*>(&here), sizeof here) == 0;
    });
}
