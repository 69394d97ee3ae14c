#include <map>
#include <sstream>
#include <utility>

#include "Journal.h"
#include "LogOutputImpl.h"

namespace sal {
namespace {

// Hands over what was written when it is flushed and ends in a line feed, as std::endl leaves it.
class LineBuffer : public std::stringbuf {
public:
    explicit LineBuffer(std::string prefix) : m_prefix(std::move(prefix)) {}

protected:
    int sync() override {
        const std::string written = str();
        if (!written.ends_with('\n'))
            return 0;
        fakehost::Journal::instance().note(m_prefix + written.substr(0, written.size() - 1));
        str(std::string());
        return 0;
    }

private:
    std::string m_prefix;
};

class LineStream : public std::ostream {
public:
    explicit LineStream(std::string prefix) : std::ostream(nullptr), m_buffer(std::move(prefix)) {
        rdbuf(&m_buffer);
    }

private:
    LineBuffer m_buffer;
};

}  // namespace

LogOutput::LogOutput(std::unique_ptr<Impl> pImpl) : m_pImpl(std::move(pImpl)) {}

LogOutput::~LogOutput() = default;

const std::string& LogOutput::name() const {
    return m_pImpl->name;
}

std::ostream& LogOutput::level(int level) {
    thread_local std::map<std::string, std::unique_ptr<LineStream>> t_streams;
    const std::string prefix = "log " + m_pImpl->name + " " + std::to_string(level) + ": ";
    std::unique_ptr<LineStream>& pStream = t_streams[prefix];
    if (!pStream)
        pStream = std::make_unique<LineStream>(prefix);
    return *pStream;
}

bool LogOutput::enabled(int) const {
    return true;
}

}  // namespace sal
