#pragma once

#include <atomic>
#include <functional>

#include "ApiCall.h"

/// The answer that a request waits for. Any thread gives it, once; where it is dropped without one, the
/// client is told so rather than left waiting. Shared by all copies of what the handler was given.
class PendingAnswer {
public:
    using Give = std::function<void(ApiAnswer)>;

    explicit PendingAnswer(Give give);
    ~PendingAnswer();
    PendingAnswer(const PendingAnswer&) = delete;
    PendingAnswer& operator=(const PendingAnswer&) = delete;

    /// Only the first one counts.
    void give(ApiAnswer answer);

private:
    const Give m_give;
    std::atomic<bool> m_isGiven = false;
};
