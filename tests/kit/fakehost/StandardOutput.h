#pragma once

#include <functional>
#include <string>
#include <vector>

namespace fakehost {

/// Catches what the process writes to descriptor 1 while it lives, whether through std::cout or stdio, so
/// that the order between the two is seen.
class StandardOutput {
public:
    StandardOutput();
    ~StandardOutput();
    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;

    /// All that was written, what still stands in buffers included.
    std::string text();
    /// What has left the process's buffers so far.
    std::string flushed() const;

    /// From now on what is written also goes to the journal, as "stdout " and the text (a line end is \0a),
    /// before the next call that is noted; the rest with journalNow().
    void intoJournal();
    void journalNow();

private:
    std::vector<std::string> fresh();

    int m_saved = -1;
    int m_file = -1;
    bool m_observing = false;
    std::size_t m_journaled = 0;
};

/// What the process writes to standard output while action runs.
std::string printedBy(const std::function<void()>& action);

}  // namespace fakehost
