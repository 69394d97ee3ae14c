#pragma once

#include <string>

#include "InputWaiter.h"

/// Reads plain lines from a pipe or file. Console thread.
class LineReader {
public:
    /// A longer line is no command.
    static constexpr std::size_t s_maxLine = 65536;

    enum class EResult { Line, TooLong, End, Stopped };

    LineReader(int fd, InputWaiter& waiter) : m_fd(fd), m_waiter(waiter) {}

    /// The next line without its end; the text after the last line end counts as one. TooLong skips a line.
    EResult read(std::string& line);

    /// After the end: the system's error number where it is none of the input's own, else 0.
    int error() const { return m_error; }

private:
    const int m_fd;
    InputWaiter& m_waiter;
    std::string m_buffer;
    bool m_skipping = false;
    bool m_atEnd = false;
    int m_error = 0;
};
