#include "PageAnswer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "PageFiles.h"

namespace {

std::string field(const ApiAnswer& answer, const std::string& name) {
    const auto found = std::find_if(answer.fields.begin(), answer.fields.end(),
                                    [&](const auto& each) { return each.first == name; });
    return found == answer.fields.end() ? "" : found->second;
}

HttpRequest get() {
    HttpRequest request;
    request.method = "GET";
    return request;
}

TEST(PageAnswerTest, PageMayLoadFromItsOwnPlaceAlone) {
    const ApiAnswer answer = answerPage("/", get());
    EXPECT_EQ(answer.status, 200u);
    EXPECT_EQ(answer.contentType, "text/html; charset=utf-8");
    EXPECT_EQ(answer.body, findPageFile("/")->bytes);
    EXPECT_EQ(answer.cache, "no-cache");
    EXPECT_EQ(field(answer, "Content-Security-Policy"),
              "default-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action 'none'; "
              "object-src 'none'");
    EXPECT_EQ(field(answer, "Content-Encoding"), "");
}

TEST(PageAnswerTest, GzipIsForWhoTakesIt) {
    HttpRequest request = get();
    request.takesGzip = true;
    const ApiAnswer answer = answerPage("/index.html", request);
    EXPECT_EQ(field(answer, "Content-Encoding"), "gzip");
    EXPECT_EQ(answer.body, findPageFile("/index.html")->zipped);
    EXPECT_EQ(field(answer, "Vary"), "Accept-Encoding");
}

TEST(PageAnswerTest, WhatIsKnownIsNotSentAgain) {
    HttpRequest request = get();
    request.knownTag = field(answerPage("/", request), "ETag");
    EXPECT_TRUE(request.knownTag.starts_with("W/\""));
    const ApiAnswer answer = answerPage("/", request);
    EXPECT_EQ(answer.status, 304u);
    EXPECT_EQ(answer.body, "");
}

TEST(PageAnswerTest, OtherFilesAndMethodsAreRefused) {
    EXPECT_EQ(answerPage("/none.js", get()).status, 404u);
    HttpRequest request = get();
    request.method = "POST";
    const ApiAnswer answer = answerPage("/", request);
    EXPECT_EQ(answer.status, 405u);
    EXPECT_EQ(answer.allow, "GET, HEAD");
}

TEST(PageAnswerTest, EveryAnswerIsKeptFromBeingTakenForSomethingElse) {
    ApiAnswer answer;
    addSafety(answer);
    EXPECT_EQ(field(answer, "X-Content-Type-Options"), "nosniff");
    EXPECT_EQ(field(answer, "Referrer-Policy"), "no-referrer");
}

}  // namespace
