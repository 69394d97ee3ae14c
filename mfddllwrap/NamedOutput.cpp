#include "NamedOutput.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>

#include "RegularFile.h"

namespace {

/// More than a driver has to say of itself.
constexpr std::size_t s_longestRead = 64u << 10;

void flushOutput() {
    std::cout.flush();
    std::fflush(stdout);
}

std::string contentOf(int fd) {
    std::string text(s_longestRead, '\0');
    std::size_t length = 0;
    while (length < text.size()) {
        const ssize_t count =
            ::pread(fd, text.data() + length, text.size() - length, static_cast<off_t>(length));
        if (count <= 0)
            break;
        length += static_cast<std::size_t>(count);
    }
    text.resize(length);
    return text;
}

}  // namespace

NamedOutput::NamedOutput(const std::string& driverID)
    : m_prefix(driverID + ": "),
      m_kept(::memfd_create("output", MFD_CLOEXEC)),
      m_output(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
    flushOutput();
    if (!m_output || !m_kept || ::dup2(m_kept.get(), STDOUT_FILENO) < 0)
        m_kept.reset();
}

NamedOutput::~NamedOutput() {
    if (!m_kept)
        return;
    flushOutput();
    ::dup2(m_output.get(), STDOUT_FILENO);
    const std::string kept = contentOf(m_kept.get());
    std::string text;
    for (std::size_t at = 0; at < kept.size();) {
        const std::size_t end = std::min(kept.find('\n', at), kept.size());
        text += m_prefix + kept.substr(at, end - at) + "\n";
        at = end + 1;
    }
    // In one piece, among the lines of other processes.
    static_cast<void>(base::writeAll(STDOUT_FILENO, text));
}
