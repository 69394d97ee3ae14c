#include "ConsoleWaits.h"

#include <algorithm>

void ConsoleWaits::answered(Milliseconds waited, bool wasTold) {
    m_longest = std::max(m_longest, waited);
    if (waited <= m_silentLimit || wasTold)
        return;
    ++m_untold;
    m_findings.push_back("the console answered after " + std::to_string(waited.count()) +
                         " ms, and nobody was told why");
}

void ConsoleWaits::notAnswered(Milliseconds waited) {
    m_longest = std::max(m_longest, waited);
    ++m_unanswered;
    m_findings.push_back("the console had no answer for " + std::to_string(waited.count()) + " ms");
}
