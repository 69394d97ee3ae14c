#include "ValueHistory.h"

#include <gmock/gmock.h>

#include <bit>
#include <limits>

#include "FidFields.h"
#include "JsonText.h"
#include "StreamFixture.h"

using stream::EKind;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr std::uint32_t s_position = 1u << 16 | 1;
constexpr std::uint32_t s_other = 1u << 16 | 2;

/// AXIS1.POSITION in the 60 seconds from second 0 on; times are milliseconds.
class ValueHistoryTest : public StreamFixture {
protected:
    ValueHistoryTest() {
        m_names.define(1u << 16, "AXIS1");
        m_names.define(2u << 16, "PANEL");
        m_names.define(s_position, "AXIS1.POSITION");
        m_names.define(s_other, "AXIS1.SPEED");
    }
    static stream::Time ms(std::int64_t milliseconds) { return at(milliseconds * 1000); }
    stream::StreamRecord record(EKind kind, std::int64_t when, std::uint32_t key, std::uint32_t value,
                                const std::string& text = {}) {
        stream::StreamRecord made;
        made.number = ++m_number;
        made.kind = kind;
        made.time = ms(when);
        made.key = key;
        made.value = value;
        made.text = text;
        return made;
    }
    void value(std::int64_t when, std::int32_t number, std::uint32_t key = s_position) {
        take(record(EKind::Int, when, key, static_cast<std::uint32_t>(number)));
    }
    void fid(std::int64_t when, const std::string& function, std::uint16_t receiver = 1) {
        stream::FidFields fields(function);
        fields.add("to", "5");
        take(record(EKind::Fid, when, 2u << 16, receiver | 1u << 24, '\0' + std::string(fields.bytes())));
    }
    void take(const stream::StreamRecord& taken, bool isAnew = false) { m_sut.take(taken, m_names, isAnew); }
    std::string text(bool isLive = true, const std::vector<RecordedPast::Hole>& holes = {}) {
        JsonText json;
        json.beginObject();
        m_sut.write(json, holes, isLive);
        json.endObject();
        return json.take();
    }
    /// What stands between the two in the answer.
    static std::string between(const std::string& text, const std::string& begin, const std::string& end) {
        const auto from = text.find(begin) + begin.size();
        return text.substr(from, text.find(end, from) - from);
    }
    /// The values of all points.
    static std::vector<std::string> values(const std::string& text) {
        std::string points = between(text, "\"points\":[", "],\"last\"");
        std::vector<std::string> found;
        for (std::size_t at = 0; (at = points.find("\"value\":", at)) != std::string::npos; ++at)
            found.push_back(points.substr(at + 8, points.find(',', at) - at - 8));
        return found;
    }

    stream::KeyNames m_names;
    std::uint64_t m_number = 0;
    ValueHistory m_sut{"AXIS1.POSITION", {ms(0), ms(60'000)}, 30};
};

}  // namespace

TEST_F(ValueHistoryTest, ChangesAreToldInTheirOrderAndTheLastOnesBackwards) {
    value(1000, 5);
    value(1500, 7, s_other);
    value(2000, -6);
    EXPECT_EQ(
        R"({"key":"AXIS1.POSITION","from":"2026-11-22T14:03:22.181123Z","to":"2026-11-22T14:04:22.181123Z",)"
        R"("changes":2,"thinned":false,"held":null,"points":[)"
        R"({"time":"2026-11-22T14:03:23.181123Z","value":5,"text":"5"},)"
        R"({"time":"2026-11-22T14:03:24.181123Z","value":-6,"text":"-6"}],"last":[)"
        R"({"number":3,"time":"2026-11-22T14:03:24.181123Z","value":-6,"text":"-6","before":[]},)"
        R"({"number":1,"time":"2026-11-22T14:03:23.181123Z","value":5,"text":"5","before":[]}],"gaps":[]})",
        text());
}

TEST_F(ValueHistoryTest, WhatItWasBeforeTheSpanIsHeld) {
    value(-5000, 1);
    value(-10, 2);
    value(0, 3);
    EXPECT_THAT(text(), HasSubstr(R"("changes":1,"thinned":false,"held":{"time":)"
                                  R"("2026-11-22T14:03:22.171123Z","value":2,"text":"2"},"points":[{)"));
    EXPECT_TRUE(m_sut.isKnown());
}

TEST_F(ValueHistoryTest, EachTypeIsTold) {
    take(record(EKind::Bool, 1, s_position, 1));
    take(record(EKind::Float, 2, s_position, std::bit_cast<std::uint32_t>(0.5f)));
    take(record(EKind::Float, 3, s_position,
                std::bit_cast<std::uint32_t>(std::numeric_limits<float>::infinity())));
    take(record(EKind::Text, 4, s_position, 0, "left"));
    take(record(EKind::Unset, 5, s_position, 0));
    EXPECT_EQ((std::vector<std::string>{"true", "0.5", "null", "\"left\"", "null"}), values(text()));
    EXPECT_THAT(text(), HasSubstr(R"("value":null,"text":"inf"})"));
    EXPECT_THAT(text(), HasSubstr(R"("value":null,"text":""})"));
}

TEST_F(ValueHistoryTest, KeyWithoutANumberIsFoundByItsText) {
    stream::StreamRecord bare = record(EKind::Int, 1, 1u << 16, 5);
    bare.keyText = "AXIS1.POSITION";
    take(bare);
    bare.keyText = "AXIS1.OTHER";
    take(bare);
    EXPECT_EQ(1u, m_sut.changes());
}

TEST_F(ValueHistoryTest, NoPeakVanishesWhereThereAreTooManyNumbers) {
    // 30 points are ten steps of 6 s.
    for (int i = 0; i < 600; ++i)
        value(i * 100, i == 333 ? 9999 : i == 334 ? -9999 : i % 7);
    const auto found = values(text());
    EXPECT_EQ(30u, found.size());
    EXPECT_EQ(1, std::count(found.begin(), found.end(), "9999"));
    EXPECT_EQ(1, std::count(found.begin(), found.end(), "-9999"));
    EXPECT_EQ(std::to_string(599 % 7), found.back());
    EXPECT_THAT(text(), HasSubstr(R"("changes":600,"thinned":true)"));
}

TEST_F(ValueHistoryTest, OfTextsTheLastOnesAreTold) {
    for (int i = 0; i < 40; ++i)
        take(record(EKind::Text, i * 1000, s_position, 0, "t" + std::to_string(i)));
    const auto found = values(text());
    EXPECT_EQ(30u, found.size());
    EXPECT_EQ("\"t10\"", found.front());
    EXPECT_THAT(text(),
                HasSubstr(R"("gaps":[{"reason":"left-out","from":"2026-11-22T14:03:22.181123Z",)"
                          R"("to":"2026-11-22T14:03:32.181123Z","text":"only the last texts are told"}])"));
    EXPECT_THAT(text(), HasSubstr(R"("thinned":true)"));
}

TEST_F(ValueHistoryTest, FidsToItsDriverInTheTwoSecondsBeforeAreToldWithIt) {
    fid(900, "AXIS1.EARLY");
    fid(1500, "AXIS1.MOVE");
    fid(1600, "PANEL.SHOW", 2);
    fid(2998, "AXIS1.STOP");
    value(3000, 5);
    fid(3100, "AXIS1.LATER");
    EXPECT_EQ(
        R"({"number":4,"time":"2026-11-22T14:03:25.179123Z","kind":"fid","driver":"PANEL","fid":"AXIS1.STOP",)"
        R"("parameters":[["to","5"]],"receiver":"AXIS1","origin":"driver","outcome":"written","beforeUs":2000},)"
        R"({"number":2,"time":"2026-11-22T14:03:23.681123Z","kind":"fid","driver":"PANEL","fid":"AXIS1.MOVE",)"
        R"("parameters":[["to","5"]],"receiver":"AXIS1","origin":"driver","outcome":"written","beforeUs":1500000})",
        between(text(), "\"before\":[", "]}],\"gaps\""));
}

TEST_F(ValueHistoryTest, ChangeThatWasRecordedLateIsNotAfterWhatCameMeanwhile) {
    fid(1005, "AXIS1.MOVE");
    // Held back, and written with the time at which it came.
    value(1003, 5);
    EXPECT_THAT(text(), HasSubstr("\"before\":[]"));
}

TEST_F(ValueHistoryTest, OnlyTheLastFidsBeforeAChangeAreTold) {
    for (int i = 0; i < 9; ++i)
        fid(1000 + i, "AXIS1.F" + std::to_string(i));
    value(1100, 5);
    EXPECT_THAT(text(), HasSubstr("AXIS1.F4"));
    EXPECT_THAT(text(), Not(HasSubstr("AXIS1.F3")));
}

TEST_F(ValueHistoryTest, StaleTimesOfItsDriverEndWithItsNextChange) {
    value(1000, 5);
    take(record(EKind::Stale, 2000, 2u << 16, 3, "of PANEL"));
    take(record(EKind::Stale, 3000, 1u << 16, 3, "signal 11"));
    value(3500, 8, s_other);
    value(4000, 5);
    EXPECT_EQ(R"({"reason":"stale","from":"2026-11-22T14:03:25.181123Z","to":"2026-11-22T14:03:26.181123Z",)"
              R"("text":"signal 11"})",
              between(text(), "\"gaps\":[", "]"));
}

TEST_F(ValueHistoryTest, StaleTimeThatGoesOnEndsWithTheSpan) {
    take(record(EKind::Stale, -3000, 1u << 16, 3, "signal 11"));
    EXPECT_EQ(R"({"reason":"stale","from":"2026-11-22T14:03:22.181123Z","to":"2026-11-22T14:04:22.181123Z",)"
              R"("text":"signal 11"})",
              between(text(false), "\"gaps\":[", "]"));
}

TEST_F(ValueHistoryTest, ValueThatHoldsNowWasNotAmongThoseThatBecameStale) {
    value(1000, 5);
    take(record(EKind::Stale, 3000, 1u << 16, 1, "another one of it"));
    EXPECT_EQ("", between(text(true), "\"gaps\":[", "]"));
}

TEST_F(ValueHistoryTest, AnotherHostKnowsNothingOfWhatItWas) {
    value(-5000, 1);
    fid(-1000, "AXIS1.MOVE");
    take(record(EKind::Int, -500, s_other, 1), true);
    value(500, 2);
    EXPECT_THAT(text(), HasSubstr("\"held\":null"));
    EXPECT_THAT(text(), HasSubstr("\"before\":[]"));
}

TEST_F(ValueHistoryTest, HolesOfTheRecordingAreGaps) {
    EXPECT_EQ(
        R"({"reason":"not-read","from":"2026-11-22T14:03:22.181123Z","to":"2026-11-22T14:03:23.181123Z",)"
        R"("text":"too much to be read for one question; mfctl recording show has it"})",
        between(text(true, {{RecordedPast::EHole::NotRead, ms(0), ms(1000)}}), "\"gaps\":[", "]"));
    EXPECT_FALSE(m_sut.isKnown());
}
