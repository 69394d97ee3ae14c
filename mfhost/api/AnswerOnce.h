#pragma once

#include <atomic>
#include <functional>

#include "ApiCall.h"

/// Sees to it that a call is answered exactly once, whoever comes first: what was asked for, its time limit,
/// or the end of the host. Shared by those. Any thread.
class AnswerOnce {
public:
    using Answer = std::function<void(ApiAnswer)>;

    explicit AnswerOnce(Answer answer);
    /// A call that nobody has answered is told that the host is stopping.
    ~AnswerOnce();
    AnswerOnce(const AnswerOnce&) = delete;
    AnswerOnce& operator=(const AnswerOnce&) = delete;

    /// Does nothing when the call is answered already.
    void give(ApiAnswer answer);
    bool isGiven() const { return m_isGiven; }

private:
    const Answer m_answer;
    std::atomic<bool> m_isGiven = false;
};
