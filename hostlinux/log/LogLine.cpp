#include "LogLine.h"

#include <cstdio>
#include <ostream>

#include "Printable.h"
#include "sal/LogManager.h"

namespace sal {
namespace {

/// Asks for the log without asserting that there is one.
struct OptionalLog : SingletonDll<LogManager> {
    static LogManager* get() { return s_pInstance; }
};

}  // namespace

void logLine(const char* output, int level, const std::string& text) {
    if (LogManager* pLog = OptionalLog::get())
        pLog->getLogOutput(output)->level(level) << text << std::endl;
    else if (level <= LogOutput::eWarning)
        std::fprintf(stderr, "%s: %s\n", output, base::printable(text).c_str());
}

void flushLog() {
    if (LogManager* pLog = OptionalLog::get())
        pLog->flush();
}

}  // namespace sal
