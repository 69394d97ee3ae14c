#include "RequestMemory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using EBegin = RequestMemory::EBegin;

class RequestMemoryTest : public testing::Test {
protected:
    std::shared_ptr<AnswerOnce> answer() {
        return std::make_shared<AnswerOnce>([this](const ApiAnswer& answer) {
            m_answers.push_back(std::to_string(answer.status) + " " + answer.body);
        });
    }
    EBegin begin(const std::string& request, const std::string& content = "x",
                 const std::string& user = "anna") {
        return m_sut.begin(user, request, content, answer());
    }
    void end(const std::string& request, const std::string& body = "done", unsigned status = 200,
             const std::string& user = "anna") {
        ApiAnswer answer;
        answer.status = status;
        answer.body = body;
        m_sut.end(user, request, answer);
    }
    /// The answers since the last call.
    std::vector<std::string> answers() { return std::exchange(m_answers, {}); }

    std::vector<std::string> m_answers;
    RequestMemory::Clock::time_point m_now{std::chrono::hours(1)};
    RequestMemory m_sut{
        {.mostOfUser = 3, .bytesOfUser = 100, .most = 5, .bytes = 150, .now = [this] { return m_now; }}};
};

using Answers = std::vector<std::string>;

}  // namespace

TEST_F(RequestMemoryTest, RepeatedRequestIsAnsweredTheSame) {
    EXPECT_EQ(EBegin::New, begin("r"));
    EXPECT_EQ(Answers{}, answers());
    end("r");
    EXPECT_EQ(Answers{"200 done"}, answers());
    EXPECT_EQ(EBegin::Known, begin("r"));
    EXPECT_EQ(EBegin::Known, begin("r"));
    EXPECT_EQ((Answers{"200 done", "200 done"}), answers());
}

TEST_F(RequestMemoryTest, RefusalIsKeptToo) {
    begin("r");
    end("r", "refused", 409);
    EXPECT_EQ(EBegin::Known, begin("r"));
    EXPECT_EQ((Answers{"409 refused", "409 refused"}), answers());
}

TEST_F(RequestMemoryTest, RepetitionWaitsWhileTheFirstIsGoingOn) {
    begin("r");
    EXPECT_EQ(EBegin::Known, begin("r"));
    EXPECT_EQ(Answers{}, answers());
    end("r");
    EXPECT_EQ((Answers{"200 done", "200 done"}), answers());
}

TEST_F(RequestMemoryTest, RepetitionsWhoseTimeIsUpAreKeptNoLonger) {
    begin("r");
    std::vector<std::weak_ptr<AnswerOnce>> late;
    for (int i = 0; i < 3; ++i) {
        const auto pLate = answer();
        late.push_back(pLate);
        m_sut.begin("anna", "r", "x", pLate);
        pLate->give({.body = "goes on"});
    }
    EXPECT_EQ(EBegin::Known, begin("r"));
    for (const auto& pLate : late)
        EXPECT_TRUE(pLate.expired());
    answers();
    end("r");
    EXPECT_EQ((Answers{"200 done", "200 done"}), answers());
}

TEST_F(RequestMemoryTest, OtherContentUnderTheSameIdDiffers) {
    begin("r");
    EXPECT_EQ(EBegin::Differs, begin("r", "y"));
    end("r");
    EXPECT_EQ(EBegin::Differs, begin("r", "y"));
    EXPECT_EQ(2, std::count(m_answers.begin(), m_answers.end(),
                            "503 {\"error\":{\"code\":\"stopping\",\"text\":\"the host is "
                            "stopping\",\"nearest\":[]}}"))
        << "those are the test's own answers, which the memory has not kept";
}

TEST_F(RequestMemoryTest, UsersHaveIdsOfTheirOwn) {
    begin("r");
    end("r", "hers");
    EXPECT_EQ(EBegin::New, begin("r", "y", "bert"));
    end("r", "his", 200, "bert");
    EXPECT_EQ((Answers{"200 hers", "200 his"}), answers());
}

TEST_F(RequestMemoryTest, WhatWasNotDoneMayBeSentAgain) {
    for (const unsigned status : {400u, 429u, 503u}) {
        EXPECT_EQ(EBegin::New, begin("r")) << status;
        end("r", "", status);
    }
    EXPECT_EQ((Answers{"400 ", "429 ", "503 "}), answers());
    EXPECT_EQ(0u, m_sut.size());
}

TEST_F(RequestMemoryTest, AnswersAreKeptTenMinutes) {
    begin("r");
    end("r");
    m_now += std::chrono::minutes(10);
    EXPECT_EQ(EBegin::Known, begin("r"));
    m_now += std::chrono::milliseconds(1);
    EXPECT_EQ(EBegin::New, begin("r"));
    EXPECT_EQ(1u, m_sut.size());
}

TEST_F(RequestMemoryTest, WhatIsGoingOnIsNotForgotten) {
    begin("r");
    m_now += std::chrono::hours(1);
    EXPECT_EQ(EBegin::Known, begin("r"));
    end("r");
    EXPECT_EQ((Answers{"200 done", "200 done"}), answers());
}

TEST_F(RequestMemoryTest, OldestAnswerOfTheUserGivesWay) {
    for (const char* request : {"1", "2", "3"}) {
        begin(request);
        end(request);
    }
    EXPECT_EQ(EBegin::New, begin("4"));
    EXPECT_EQ(3u, m_sut.size());
    EXPECT_EQ(EBegin::Known, begin("2"));
    EXPECT_EQ(EBegin::New, begin("1"));
}

TEST_F(RequestMemoryTest, IsFullWhereAllAreGoingOn) {
    begin("1");
    begin("2");
    begin("3");
    EXPECT_EQ(EBegin::Full, begin("4"));
    EXPECT_EQ(EBegin::New, begin("1", "x", "bert")) << "another user has room of his own";
    end("2");
    EXPECT_EQ(EBegin::New, begin("4"));
}

TEST_F(RequestMemoryTest, BytesAreBoundedToo) {
    begin("1");
    end("1", std::string(60, 'a'));
    begin("2");
    end("2", std::string(60, 'b'));
    EXPECT_EQ(1u, m_sut.size());
    EXPECT_EQ(EBegin::Known, begin("2"));
    EXPECT_EQ(EBegin::New, begin("1"));
}

TEST_F(RequestMemoryTest, WhereAllTogetherAreTooManyTheLargestUserGivesWay) {
    for (const char* request : {"1", "2", "3"}) {
        begin(request, "xx");
        end(request);
    }
    for (const char* user : {"bert", "cleo"}) {
        begin("1", "x", user);
        end("1", "done", 200, user);
    }
    EXPECT_EQ(EBegin::New, begin("1", "x", "dora"));
    EXPECT_EQ(5u, m_sut.size());
    EXPECT_EQ(EBegin::Known, begin("1", "x", "bert"));
    EXPECT_EQ(EBegin::Known, begin("2", "xx"));
    EXPECT_EQ(EBegin::New, begin("1", "xx")) << "the oldest of the user that had three";
}

TEST_F(RequestMemoryTest, EndOfAnUnknownRequestIsNothing) {
    end("r");
    begin("r");
    end("r", "first");
    end("r", "second");
    EXPECT_EQ(Answers{"200 first"}, answers());
}

TEST_F(RequestMemoryTest, ThreadsThatSendTheSameHaveItDoneOnce) {
    RequestMemory sut;
    for (int round = 0; round < 100; ++round) {
        const std::string request = std::to_string(round);
        std::atomic<int> begun = 0;
        std::atomic<int> answered = 0;
        const auto send = [&] {
            const auto pAnswer = std::make_shared<AnswerOnce>([&](const ApiAnswer& answer) {
                if (answer.body == "done")
                    ++answered;
            });
            if (sut.begin("anna", request, "x", pAnswer) == EBegin::New) {
                ++begun;
                ApiAnswer answer;
                answer.body = "done";
                sut.end("anna", request, answer);
            }
        };
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back(send);
        for (std::thread& thread : threads)
            thread.join();
        ASSERT_EQ(1, begun);
        ASSERT_EQ(4, answered);
    }
}
