#include "AnswerOnce.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

class AnswerOnceTest : public testing::Test {
protected:
    std::vector<std::string> m_answers;
    std::unique_ptr<AnswerOnce> m_pSut = std::make_unique<AnswerOnce>([this](const ApiAnswer& answer) {
        m_answers.push_back(std::to_string(answer.status) + answer.body);
    });
};

}  // namespace

TEST_F(AnswerOnceTest, FirstAnswerCounts) {
    EXPECT_FALSE(m_pSut->isGiven());
    m_pSut->give({.body = "first"});
    EXPECT_TRUE(m_pSut->isGiven());
    m_pSut->give({.body = "second"});
    m_pSut.reset();
    EXPECT_EQ(std::vector<std::string>{"200first"}, m_answers);
}

TEST_F(AnswerOnceTest, CallThatWasDroppedIsToldThatTheHostStops) {
    m_pSut.reset();
    EXPECT_EQ(
        std::vector<std::string>{
            "503{\"error\":{\"code\":\"stopping\",\"text\":\"the host is stopping\",\"nearest\":[]}}"},
        m_answers);
}

TEST_F(AnswerOnceTest, CallThatWasDroppedIsToldWhatItsOwnerSays) {
    {
        const AnswerOnce sut(
            [this](const ApiAnswer& answer) {
                m_answers.push_back(std::to_string(answer.status) + answer.body);
            },
            ApiFault::ECode::Internal, "the host has dropped it");
    }
    EXPECT_EQ(
        std::vector<std::string>{
            "500{\"error\":{\"code\":\"internal\",\"text\":\"the host has dropped it\",\"nearest\":[]}}"},
        m_answers);
}

TEST_F(AnswerOnceTest, OneOfTwoThreadsAnswers) {
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> answers = 0;
        AnswerOnce sut([&](const ApiAnswer&) { ++answers; });
        std::thread other([&] { sut.give({}); });
        sut.give({});
        other.join();
        ASSERT_EQ(1, answers);
    }
}
