#include "PendingAction.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

class PendingActionTest : public testing::Test {
protected:
    std::shared_ptr<AnswerOnce> answer() {
        return std::make_shared<AnswerOnce>([this](const ApiAnswer& answer) {
            m_answers.push_back(std::to_string(answer.status) + answer.body);
        });
    }
    std::vector<std::string> m_answers;
    std::shared_ptr<RequestMemory> m_pMemory = std::make_shared<RequestMemory>();
};

const std::string s_stopping =
    "503{\"error\":{\"code\":\"stopping\",\"text\":\"the host is stopping\",\"nearest\":[]}}";

}  // namespace

TEST_F(PendingActionTest, WithoutARequestItsEndAnswersTheCall) {
    PendingAction sut(m_pMemory, "anna", "", answer());
    sut.end({.body = "done"});
    sut.end({.body = "again"});
    EXPECT_EQ(std::vector<std::string>{"200done"}, m_answers);
    EXPECT_EQ(0u, m_pMemory->size());
}

TEST_F(PendingActionTest, WithARequestItsEndIsKept) {
    const auto pAnswer = answer();
    ASSERT_EQ(RequestMemory::EBegin::New, m_pMemory->begin("anna", "r", "x", pAnswer));
    PendingAction(m_pMemory, "anna", "r", pAnswer).end({.body = "done"});
    EXPECT_EQ(std::vector<std::string>{"200done"}, m_answers);
    EXPECT_EQ(1u, m_pMemory->size());
}

TEST_F(PendingActionTest, WhatIsDroppedWasNotDone) {
    { const PendingAction sut(m_pMemory, "anna", "", answer()); }
    EXPECT_EQ(std::vector<std::string>{s_stopping}, m_answers);
}

TEST_F(PendingActionTest, MayOutliveItsMaker) {
    const auto pAnswer = answer();
    m_pMemory->begin("anna", "r", "x", pAnswer);
    {
        const PendingAction sut(m_pMemory, "anna", "r", pAnswer);
        m_pMemory.reset();
    }
    EXPECT_EQ(std::vector<std::string>{s_stopping}, m_answers);
}

TEST_F(PendingActionTest, RequestThatIsDroppedMayBeSentAgain) {
    const auto pAnswer = answer();
    ASSERT_EQ(RequestMemory::EBegin::New, m_pMemory->begin("anna", "r", "x", pAnswer));
    { const PendingAction sut(m_pMemory, "anna", "r", pAnswer); }
    EXPECT_EQ(std::vector<std::string>{s_stopping}, m_answers);
    EXPECT_EQ(RequestMemory::EBegin::New, m_pMemory->begin("anna", "r", "x", answer()));
}
