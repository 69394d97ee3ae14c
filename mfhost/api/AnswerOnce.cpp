#include "AnswerOnce.h"

#include <utility>

#include "ApiFault.h"

AnswerOnce::AnswerOnce(Answer answer) : m_answer(std::move(answer)) {}

AnswerOnce::~AnswerOnce() {
    if (!m_isGiven)
        give(ApiFault(ApiFault::ECode::Stopping, "the host is stopping").answer());
}

void AnswerOnce::give(ApiAnswer answer) {
    if (!m_isGiven.exchange(true))
        m_answer(std::move(answer));
}
