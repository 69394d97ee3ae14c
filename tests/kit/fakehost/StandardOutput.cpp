#include "StandardOutput.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <stdexcept>

#include "Journal.h"

namespace fakehost {

StandardOutput::StandardOutput() {
    std::cout.flush();
    std::fflush(stdout);
    m_saved = dup(STDOUT_FILENO);
    m_file = memfd_create("standard output", MFD_CLOEXEC);
    if (m_saved < 0 || m_file < 0 || dup2(m_file, STDOUT_FILENO) < 0)
        throw std::runtime_error("cannot catch standard output");
    // As to a pipe, even when the tests run on a terminal: what nobody flushes stays in the buffer.
    std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
}

StandardOutput::~StandardOutput() {
    if (m_observing)
        Journal::instance().setObserver(nullptr);
    std::cout.flush();
    std::fflush(stdout);
    dup2(m_saved, STDOUT_FILENO);
    close(m_saved);
    close(m_file);
}

std::string StandardOutput::text() {
    std::cout.flush();
    std::fflush(stdout);
    return flushed();
}

std::string StandardOutput::flushed() const {
    std::string result;
    char buffer[4096];
    ssize_t got = 0;
    while ((got = pread(m_file, buffer, sizeof buffer, static_cast<off_t>(result.size()))) > 0)
        result.append(buffer, static_cast<std::size_t>(got));
    return result;
}

void StandardOutput::intoJournal() {
    m_journaled = text().size();
    m_observing = true;
    Journal::instance().setObserver([this] { return fresh(); });
}

void StandardOutput::journalNow() {
    Journal::instance().setObserver(nullptr);
    for (const std::string& line : fresh())
        Journal::instance().note(line);
    Journal::instance().setObserver([this] { return fresh(); });
}

std::vector<std::string> StandardOutput::fresh() {
    const std::string all = text();
    if (all.size() <= m_journaled)
        return {};
    std::string line = "stdout " + escaped(all.substr(m_journaled));
    m_journaled = all.size();
    return {line};
}

std::string printedBy(const std::function<void()>& action) {
    StandardOutput output;
    action();
    return output.text();
}

}  // namespace fakehost
