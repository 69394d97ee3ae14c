#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace fakehost {

/// What the object under test asked of its host, in order, one line a call. One for the process; any thread
/// writes. A scripted failure makes the call of that line fail; it is noted all the same.
class Journal {
public:
    static Journal& instance();

    /// Forgets lines, failures and the observer.
    void reset();
    void clear();

    void note(const std::string& line);
    /// Notes the line and says whether the call succeeds.
    bool perform(const std::string& line);

    /// The same for a call that is not worth a line: a mere question.
    bool permit(const std::string& line);

    enum class EFailure { Refused, Throws };
    /// From now on the calls of this thread that can fail are counted, from 0; the one of that number fails,
    /// or throws as if memory were short. None fails for -1.
    void failCall(int number, EFailure how = EFailure::Refused);
    /// What has been counted.
    std::vector<std::string> countedCalls() const;

    /// Calls whose line is pattern, or begins with it followed by a blank, fail: the next `times` of them,
    /// all for -1.
    void fail(const std::string& pattern, int times = -1);

    std::vector<std::string> lines() const;
    /// The lines that begin with one of these words or groups of words.
    std::vector<std::string> linesOf(const std::vector<std::string>& beginnings) const;
    int count(const std::string& line) const;

    /// Waits until the line has been noted that many times. False when that has not happened in ten seconds.
    bool waitFor(const std::string& line, int times = 1) const;

    /// Called before each line is added, so that an observer can put lines of its own before it.
    void setObserver(std::function<std::vector<std::string>()> observer);

private:
    static bool begins(const std::string& line, const std::string& pattern);

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<std::string> m_lines;
    std::vector<std::pair<std::string, int>> m_failures;
    std::thread::id m_counted;  ///< the thread whose calls are counted; none at first
    std::vector<std::string> m_calls;
    int m_failingCall = -1;
    EFailure m_failure = EFailure::Refused;
    std::function<std::vector<std::string>()> m_observer;
};

/// Text with everything but printable ASCII as \xx; a backslash is doubled.
std::string escaped(const std::string& bytes);

}  // namespace fakehost
