#include "PendingAnswer.h"

#include <utility>

#include "ErrorAnswer.h"

PendingAnswer::PendingAnswer(Give give) : m_give(std::move(give)) {}

PendingAnswer::~PendingAnswer() {
    give(errorAnswer(500, "internal", "the host has dropped this request without an answer"));
}

void PendingAnswer::give(ApiAnswer answer) {
    if (!m_isGiven.exchange(true))
        m_give(std::move(answer));
}
