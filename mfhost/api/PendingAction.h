#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "AnswerOnce.h"
#include "ApiCall.h"
#include "RequestMemory.h"

/// An action that is being done for a call: takes its outcome to whoever waits for it. Held by what does the
/// action. Any thread; ended once.
class PendingAction {
public:
    /// An empty request is kept by nobody, and its answer goes to this call alone.
    PendingAction(std::shared_ptr<RequestMemory> pMemory, std::string user, std::string request,
                  std::shared_ptr<AnswerOnce> pAnswer);
    /// What was dropped before its end was not done: the host is stopping.
    ~PendingAction();
    PendingAction(const PendingAction&) = delete;
    PendingAction& operator=(const PendingAction&) = delete;

    const std::string& request() const { return m_request; }
    /// How far it is: the call's own answer, where it has none yet. The action goes on to its end().
    void tellProgress(const ApiAnswer& answer) { m_pAnswer->give(answer); }
    void end(const ApiAnswer& answer);

private:
    const std::shared_ptr<RequestMemory> m_pMemory;
    const std::string m_user;
    const std::string m_request;
    const std::shared_ptr<AnswerOnce> m_pAnswer;
    std::atomic<bool> m_isEnded = false;
};
