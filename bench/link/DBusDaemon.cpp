#include "DBusDaemon.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "Affinity.h"

DBusDaemon::Pipe::Pipe() {
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe2");
}

// Everything is allowed, as on the bus of a session.
std::string DBusDaemon::configuration(const std::string& directory, const std::string& services) {
    if (services.empty())
        return "--session";
    const std::string file = directory + "/bus.conf";
    std::ofstream(file) << "<busconfig><type>session</type><listen>unix:path=" << directory
                        << "/bus</listen><auth>EXTERNAL</auth><servicedir>" << services
                        << "</servicedir><policy context=\"default\"><allow send_destination=\"*\"/>"
                           "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>\n";
    return "--config-file=" + file;
}

DBusDaemon::DBusDaemon(const std::string& directory, int cores, const std::string& services)
    : m_address("unix:path=" + directory + "/bus"),
      m_configuration(configuration(directory, services)),
      m_process([this, cores] {
          if (cores > 0)
              Affinity::set(cores);
          fcntl(m_pipe.ends[1], F_SETFD, 0);
          // It warns of descriptor limits that play no part here.
          dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
          const std::string option = "--address=" + m_address;
          const std::string print = "--print-address=" + std::to_string(m_pipe.ends[1]);
          execlp("dbus-daemon", "dbus-daemon", m_configuration.c_str(), "--nofork", "--nopidfile",
                 option.c_str(), print.c_str(), static_cast<char*>(nullptr));
          _exit(127);
      }) {
    close(m_pipe.ends[1]);
    char byte = 0;
    const ssize_t count = read(m_pipe.ends[0], &byte, 1);
    close(m_pipe.ends[0]);
    if (count != 1)
        throw std::runtime_error("dbus-daemon does not start; dbus-daemon --session --nofork says why");
}
