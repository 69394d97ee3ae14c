#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "HttpLimits.h"

/// How many connections there are of whom, and whether there may be one more. Owned by ApiServer; API thread.
class ConnectionCount {
public:
    struct Holder {
        unsigned uid = 0;
        std::string name;
        bool isFavoured = false;  ///< root or the starter
        bool isRefused = false;   ///< waits to be told that it may do nothing
    };

    explicit ConnectionCount(const HttpLimits& limits);

    /// Which limit one more of that holder would be beyond; empty when it is counted.
    std::string add(const Holder& holder);
    void remove(const Holder& holder);

private:
    const HttpLimits& m_limits;
    std::size_t m_all = 0;
    std::size_t m_others = 0;  ///< of those who are neither root nor the starter
    std::size_t m_refused = 0;
    std::map<unsigned, std::size_t> m_ofUser;
};
