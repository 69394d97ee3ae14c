#include "ApiFault.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using ECode = ApiFault::ECode;

TEST(ApiFault, AnswerHasCodeTextAndNearest) {
    const ApiAnswer answer =
        ApiFault(ECode::DriverUnknown, "there is no driver AXSI1", {"AXIS1", "AXIS2"}).answer();
    EXPECT_EQ(404u, answer.status);
    EXPECT_EQ("application/json", answer.contentType);
    EXPECT_EQ(
        "{\"error\":{\"code\":\"driver-unknown\",\"text\":\"there is no driver AXSI1\","
        "\"nearest\":[\"AXIS1\",\"AXIS2\"]}}",
        answer.body);
    EXPECT_EQ("", answer.allow);
}

TEST(ApiFault, EachCodeHasItsWordAndStatus) {
    const std::vector<std::pair<ECode, std::string>> codes{
        {ECode::RequestInvalid, "400 request-invalid"},
        {ECode::SessionNeeded, "401 session-needed"},
        {ECode::NotAllowed, "403 not-allowed"},
        {ECode::NotFound, "404 not-found"},
        {ECode::DriverUnknown, "404 driver-unknown"},
        {ECode::MacroUnknown, "404 macro-unknown"},
        {ECode::StateUnknown, "404 state-unknown"},
        {ECode::AlarmUnknown, "404 alarm-unknown"},
        {ECode::MethodNotAllowed, "405 method-not-allowed"},
        {ECode::TooSlow, "408 request-invalid"},
        {ECode::FidUndelivered, "409 fid-undelivered"},
        {ECode::PlanOutdated, "409 plan-outdated"},
        {ECode::Refused, "409 refused"},
        {ECode::RequestDiffers, "409 request-differs"},
        {ECode::TooLarge, "413 too-large"},
        {ECode::MediaType, "415 media-type"},
        {ECode::HostUnknown, "421 host-unknown"},
        {ECode::TooMany, "429 too-many"},
        {ECode::QueueFull, "503 queue-full"},
        {ECode::Busy, "503 busy"},
        {ECode::Stopping, "503 stopping"},
        {ECode::Internal, "500 internal"}};
    for (const auto& [code, word] : codes) {
        const ApiAnswer answer = ApiFault(code, "t").answer();
        EXPECT_EQ("{\"error\":{\"code\":\"" + word.substr(4) + "\",\"text\":\"t\",\"nearest\":[]}}",
                  answer.body);
        EXPECT_EQ(word.substr(0, 3), std::to_string(answer.status));
    }
}

TEST(ApiFault, ReasonAndMethodsAreTold) {
    EXPECT_EQ("{\"error\":{\"code\":\"fid-undelivered\",\"text\":\"t\",\"reason\":\"threw\",\"nearest\":[]}}",
              ApiFault(ECode::FidUndelivered, "t").withReason("threw").answer().body);
    EXPECT_EQ("GET, POST", ApiFault(ECode::MethodNotAllowed, "t").withAllow("GET, POST").answer().allow);
}

TEST(ApiFault, TextsOfAnyBytesAreJson) {
    EXPECT_EQ(
        "{\"error\":{\"code\":\"refused\",\"text\":\"a\\\"\\u000a\xef\xbf\xbd\",\"nearest\":[\"\\u001b\"]}}",
        ApiFault(ECode::Refused, "a\"\n\xff", {"\x1b"}).answer().body);
}

TEST(ApiFault, WhatSaysThatNothingWasDoneMayBeSentAgain) {
    for (const unsigned status : {400u, 429u, 503u})
        EXPECT_TRUE(ApiFault::isUndone(status)) << status;
    for (const unsigned status : {200u, 202u, 404u, 409u, 500u})
        EXPECT_FALSE(ApiFault::isUndone(status)) << status;
}
