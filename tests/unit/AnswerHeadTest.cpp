#include "AnswerHead.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

/// Monday, 2 March 2026, 04:05:06.
constexpr std::chrono::system_clock::time_point s_now{std::chrono::seconds(1'772'424'306)};

TEST(AnswerHead, SaysWhatFollows) {
    ApiAnswer answer;
    answer.body = "{}\n";
    EXPECT_EQ(answerHead(answer, false, s_now),
              "HTTP/1.1 200 OK\r\n"
              "Date: Mon, 02 Mar 2026 04:05:06 GMT\r\n"
              "Content-Type: application/json\r\n"
              "Content-Length: 3\r\n"
              "Cache-Control: no-store\r\n"
              "Connection: keep-alive\r\n\r\n");
}

TEST(AnswerHead, NamesTheMethodsThereAreAndTheEnd) {
    ApiAnswer answer;
    answer.status = 405;
    answer.allow = "GET, HEAD";
    answer.contentType = "text/plain";
    EXPECT_EQ(answerHead(answer, true, s_now),
              "HTTP/1.1 405 Method Not Allowed\r\n"
              "Date: Mon, 02 Mar 2026 04:05:06 GMT\r\n"
              "Content-Type: text/plain\r\n"
              "Content-Length: 0\r\n"
              "Cache-Control: no-store\r\n"
              "Allow: GET, HEAD\r\n"
              "Connection: close\r\n\r\n");
}

TEST(AnswerHead, HasFurtherFields) {
    ApiAnswer answer;
    answer.cache = "no-cache";
    answer.fields = {{"ETag", "W/\"a\""}, {"Vary", "Accept-Encoding"}};
    EXPECT_EQ(answerHead(answer, true, s_now),
              "HTTP/1.1 200 OK\r\n"
              "Date: Mon, 02 Mar 2026 04:05:06 GMT\r\n"
              "Content-Type: application/json\r\n"
              "Content-Length: 0\r\n"
              "Cache-Control: no-cache\r\n"
              "ETag: W/\"a\"\r\n"
              "Vary: Accept-Encoding\r\n"
              "Connection: close\r\n\r\n");
}

TEST(AnswerHead, WhatComesInPiecesIsInChunksButForTheFormerVersion) {
    struct Nothing final : IAnswerBody {
        Piece next() override { return {}; }
    };
    ApiAnswer answer;
    answer.pMore = std::make_shared<Nothing>();
    EXPECT_EQ(answerHead(answer, false, s_now),
              "HTTP/1.1 200 OK\r\n"
              "Date: Mon, 02 Mar 2026 04:05:06 GMT\r\n"
              "Content-Type: application/json\r\n"
              "Transfer-Encoding: chunked\r\n"
              "Cache-Control: no-store\r\n"
              "Connection: keep-alive\r\n\r\n");
    EXPECT_EQ(answerHead(answer, true, s_now, true),
              "HTTP/1.1 200 OK\r\n"
              "Date: Mon, 02 Mar 2026 04:05:06 GMT\r\n"
              "Content-Type: application/json\r\n"
              "Cache-Control: no-store\r\n"
              "Connection: close\r\n\r\n");
}

TEST(AnswerHead, WhatHasNotChangedHasNoLength) {
    ApiAnswer answer;
    answer.status = 304;
    EXPECT_EQ(answerHead(answer, false, s_now),
              "HTTP/1.1 304 Not Modified\r\n"
              "Date: Mon, 02 Mar 2026 04:05:06 GMT\r\n"
              "Cache-Control: no-store\r\n"
              "Connection: keep-alive\r\n\r\n");
}

}  // namespace
