#include "sal/Process.h"

#include "Journal.h"

namespace sal {

bool Process::createProcess(const std::string& title, Path& executable,
                            const std::vector<std::string>& arguments) {
    std::string line = "process start " + executable.getPathString() + " [" + title + "]";
    for (const std::string& argument : arguments)
        line += " [" + argument + "]";
    return fakehost::Journal::instance().perform(line) && !executable.getPathString().empty();
}

void Process::Observer::startFailed(const std::vector<std::string>&, const std::string&) {}

std::vector<std::string> Process::Observer::variables(const std::vector<std::string>&) {
    return {};
}

void Process::Observer::awaitStart(int, unsigned int) {}

void Process::setObserver(Observer*) {}

}  // namespace sal
