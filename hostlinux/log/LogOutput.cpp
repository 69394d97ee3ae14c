#include "sal/LogOutput.h"

#include <algorithm>
#include <utility>

#include "LineStreams.h"
#include "LogOutputImpl.h"

namespace sal {

LogOutput::LogOutput(std::unique_ptr<Impl> pImpl) : m_pImpl(std::move(pImpl)) {}

LogOutput::~LogOutput() = default;

const std::string& LogOutput::name() const {
    return m_pImpl->name;
}

std::ostream& LogOutput::level(int level) {
    if (!enabled(level))
        return nullStream();
    return lineStream(m_pImpl->number, m_pImpl->name, std::max<int>(level, eCritical), m_pImpl->pCore);
}

bool LogOutput::enabled(int level) const {
    return m_pImpl->pCore->enabled(level);
}

}  // namespace sal
