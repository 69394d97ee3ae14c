#include "PendingAction.h"

#include <utility>

#include "ApiFault.h"

PendingAction::PendingAction(std::shared_ptr<RequestMemory> pMemory, std::string user, std::string request,
                             std::shared_ptr<AnswerOnce> pAnswer)
    : m_pMemory(std::move(pMemory)),
      m_user(std::move(user)),
      m_request(std::move(request)),
      m_pAnswer(std::move(pAnswer)) {}

PendingAction::~PendingAction() {
    if (!m_isEnded)
        end(ApiFault(ApiFault::ECode::Stopping, "the host is stopping").answer());
}

void PendingAction::end(const ApiAnswer& answer) {
    if (m_isEnded.exchange(true))
        return;
    if (m_request.empty())
        m_pAnswer->give(answer);
    else
        m_pMemory->end(m_user, m_request, answer);
}
