#pragma once

#include <chrono>
#include <set>
#include <string>

/// Whether values of another site were lost on the way, from how its own sums compare with those here: of
/// each driver, twice in a row, since a line may let messages overtake one another. Says so once a minute at
/// most, and less and less often where it does not help. Used by one thread.
class LossWatch {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// The site has told its sum of that driver. True when values of it were lost, and it is time to ask for
    /// them.
    bool compare(const std::string& driver, bool isEqual, Time now);
    /// Not all values of the driver are kept here: no sum of it says anything.
    void exclude(const std::string& driver);
    /// Everything is told anew.
    void begin() { m_doubtful.clear(); }

private:
    static constexpr std::chrono::minutes s_first{1};

    std::set<std::string> m_doubtful;
    std::set<std::string> m_excluded;
    Time m_next{};
    std::chrono::minutes m_pause{s_first};
};
