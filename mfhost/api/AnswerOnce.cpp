#include "AnswerOnce.h"

#include <utility>

AnswerOnce::AnswerOnce(Answer answer, ApiFault::ECode dropped, const char* pDroppedText)
    : m_answer(std::move(answer)), m_dropped(dropped), m_pDroppedText(pDroppedText) {}

AnswerOnce::~AnswerOnce() {
    if (!m_isGiven)
        give(ApiFault(m_dropped, m_pDroppedText).answer());
}

void AnswerOnce::give(ApiAnswer answer) {
    if (!m_isGiven.exchange(true))
        m_answer(std::move(answer));
}
