#pragma once

#include <memory>
#include <ostream>
#include <streambuf>
#include <string>

#include "LogCore.h"

namespace sal {

/// One thread's stream for one output and level. Gathers a line and hands it to the log when it is ended with
/// std::endl, then takes back what manipulators changed. Owned by that thread; may outlive the log, and then
/// drops its lines.
class LineStream : public std::ostream {
public:
    LineStream(std::weak_ptr<LogCore> pCore, const std::string& output, int level);
    /// A line that was begun but not ended is handed over as it is.
    ~LineStream() override;

    bool isOrphan() const { return m_buffer.isOrphan(); }

private:
    class Buffer : public std::streambuf {
    public:
        Buffer(std::ostream& stream, std::weak_ptr<LogCore> pCore, const std::string& output, int level);
        void handOverRest();
        bool isOrphan() const { return m_pCore.expired(); }

    protected:
        int_type overflow(int_type c) override;
        std::streamsize xsputn(const char* text, std::streamsize size) override;
        int sync() override;

    private:
        void handOver();

        std::ostream& m_stream;
        std::weak_ptr<LogCore> m_pCore;
        std::string m_output;
        int m_level;
        std::string m_text;
    };

    Buffer m_buffer;
};

}  // namespace sal
