#include "sal/LogManager.h"

#include <map>

#include "Journal.h"
#include "LogOutputImpl.h"

namespace sal {

template <class T>
T* SingletonDll<T>::s_pInstance = nullptr;
template class SingletonDll<LogManager>;

struct LogManager::Impl {
    std::map<std::string, std::unique_ptr<LogOutput>> outputs;
    int level = LogOutput::eTrace;
};

LogManager::LogManager() : LogManager(Settings()) {}

LogManager::LogManager(const Settings&) : m_pImpl(std::make_unique<Impl>()) {
    s_pInstance = this;
}

LogManager::~LogManager() {
    s_pInstance = nullptr;
}

LogOutput* LogManager::getLogOutput(const std::string& name) {
    if (!fakehost::Journal::instance().perform("getLogOutput " + name))
        return nullptr;
    std::unique_ptr<LogOutput>& pOutput = m_pImpl->outputs[name];
    if (!pOutput) {
        auto pImpl = std::make_unique<LogOutput::Impl>();
        pImpl->name = name;
        pOutput.reset(new LogOutput(std::move(pImpl)));
    }
    return pOutput.get();
}

void LogManager::write(const Line& line) {
    fakehost::Journal::instance().note("log " + line.output + " " + std::to_string(line.level) + ": " +
                                       line.text);
}

LogManager::ErrorLine LogManager::readErrorLine(std::string_view bytes) {
    return {bytes, std::nullopt};
}

void LogManager::setObserver(Observer*) {}

void LogManager::setLevel(int level) {
    m_pImpl->level = level;
}

int LogManager::level() const {
    return m_pImpl->level;
}

void LogManager::flush() {}

}  // namespace sal
