#pragma once

#include <atomic>
#include <functional>

#include "ApiCall.h"
#include "ApiFault.h"

/// Sees to it that a call is answered exactly once, whoever comes first: what was asked for, its time limit,
/// or the end of the host. Shared by those. Any thread.
class AnswerOnce {
public:
    using Answer = std::function<void(ApiAnswer)>;

    /// A call that is not answered when the last of those that share it lets go gets this fault: it is told
    /// so rather than left waiting. The text lives as long as the program.
    explicit AnswerOnce(Answer answer, ApiFault::ECode dropped = ApiFault::ECode::Stopping,
                        const char* pDroppedText = "the host is stopping");
    ~AnswerOnce();
    AnswerOnce(const AnswerOnce&) = delete;
    AnswerOnce& operator=(const AnswerOnce&) = delete;

    /// Does nothing when the call is answered already.
    void give(ApiAnswer answer);
    bool isGiven() const { return m_isGiven; }

private:
    const Answer m_answer;
    const ApiFault::ECode m_dropped;
    const char* const m_pDroppedText;
    std::atomic<bool> m_isGiven = false;
};
