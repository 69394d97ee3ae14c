#include "StreamText.h"

#include "StreamFixture.h"

using stream::EKind;
using stream::StreamGap;
using stream::StreamRecord;

namespace {

class StreamTextTest : public StreamFixture {
protected:
    StreamTextTest() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        m_record.number = 7;
        m_record.time = at(0);
    }
    std::string json() const {
        std::string text;
        stream::appendJson(text, m_record, m_names);
        return text;
    }

    StreamRecord m_record;
    stream::KeyNames m_names;
};

}  // namespace

TEST_F(StreamTextTest, TimeHasMicroseconds) {
    m_record.kind = EKind::Exit;
    m_record.text = "signal 9";
    EXPECT_EQ(stream::lineOf(m_record, m_names), "14:03:22.181123 host exit signal 9");
    EXPECT_EQ(stream::lineOf(m_record, m_names, true), "2026-11-22 14:03:22.181123 host exit signal 9");
    EXPECT_EQ(stream::utcText(at(-181'120)), "2026-11-22T14:03:22.000003Z");
    EXPECT_EQ(stream::utcText(stream::Time(std::chrono::microseconds(-1))), "1969-12-31T23:59:59.999999Z");
}

TEST_F(StreamTextTest, CutTextSaysSo) {
    m_record.kind = EKind::Output;
    m_record.text = "long";
    m_record.isCut = true;
    EXPECT_EQ(stream::lineOf(m_record, m_names), "14:03:22.181123 host output long ... (cut)");
    EXPECT_EQ(json(), R"({"number":7,"time":"2026-11-22T14:03:22.181123Z","kind":"output","driver":"host",)"
                      R"("text":"long","cut":true})");
}

TEST_F(StreamTextTest, TextWithoutTimeDriverAndKind) {
    m_record.kind = EKind::Output;
    m_record.text = "a\nb";
    EXPECT_EQ(stream::textOf(m_record, m_names), "a\\nb");
    m_record.isCut = true;
    EXPECT_EQ(stream::textOf(m_record, m_names), "a\\nb ... (cut)");
}

TEST_F(StreamTextTest, CauseIsNamedWhereThereIsOne) {
    m_record.kind = EKind::Output;
    m_record.cause = 5;
    EXPECT_EQ(json(), R"({"number":7,"time":"2026-11-22T14:03:22.181123Z","kind":"output","driver":"host",)"
                      R"("cause":5,"text":""})");
}

TEST_F(StreamTextTest, RecordsOfTheWrongFormAreShownAllTheSame) {
    for (int kind = 0; kind < 256; ++kind) {
        for (const std::string text : {"", "\xff", "\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff", "\1"}) {
            m_record.kind = static_cast<EKind>(kind);
            m_record.text = text;
            m_record.value = 0xffffffff;
            EXPECT_EQ(stream::lineOf(m_record, m_names).substr(0, 21), "14:03:22.181123 host ");
            EXPECT_EQ(json().front(), '{');
            EXPECT_EQ(json().back(), '}');
            static_cast<void>(stream::subjectOf(m_record, m_names));
        }
    }
}

TEST_F(StreamTextTest, ValueIsWhatAValueBecameOrAnEventCameWith) {
    m_record.text = "a\nb";
    m_record.value = 0x41480000;
    for (const auto& [kind, expected] : std::vector<std::pair<EKind, std::string>>{{EKind::Text, "a\nb"},
                                                                                   {EKind::Event, "a\nb"},
                                                                                   {EKind::Float, "12.5"},
                                                                                   {EKind::Int, "1095237632"},
                                                                                   {EKind::Bool, "true"},
                                                                                   {EKind::Unset, ""},
                                                                                   {EKind::Exit, ""}}) {
        m_record.kind = kind;
        EXPECT_EQ(stream::valueOf(m_record), expected);
    }
}

TEST_F(StreamTextTest, GapOfTheKeeperSaysWhy) {
    m_record.kind = EKind::Gap;
    m_record.value = 4;
    const std::array<std::uint64_t, 5> words{7, 10, 3, 0, 0};
    m_record.text.assign(reinterpret_cast<const char*>(words.data()), sizeof words);
    EXPECT_EQ(stream::lineOf(m_record, m_names),
              "14:03:22.181123 host gap 3 records of #7 to #9 not taken by the disk");
    EXPECT_EQ(stream::countOf(m_record), 3u);
    EXPECT_EQ(json(), R"({"number":7,"time":"2026-11-22T14:03:22.181123Z","kind":"gap","driver":"host",)"
                      R"("reason":"not taken by the disk","first":7,"next":10,"count":3})");
}

TEST_F(StreamTextTest, GapsAreToldWithTheirTimeAndNumber) {
    StreamGap gap{.reason = StreamGap::EReason::Lapped,
                  .first = 8,
                  .next = 11,
                  .from = at(-1'000'000),
                  .to = at(0),
                  .count = 3};
    EXPECT_EQ(stream::lineOf(gap),
              "14:03:22.181123 gap: 3 records overwritten before they were read, since 14:03:21.181123");
    std::string json;
    stream::appendJson(json, gap);
    EXPECT_EQ(json, R"({"kind":"gap","reason":"lapped","first":8,"next":11,"count":3,)"
                    R"("from":"2026-11-22T14:03:21.181123Z","to":"2026-11-22T14:03:22.181123Z"})");
    gap.reason = StreamGap::EReason::Missing;
    gap.from = stream::Time();
    gap.count = 1;
    EXPECT_EQ(stream::lineOf(gap), "14:03:22.181123 gap: 1 record never completed");
    gap.reason = StreamGap::EReason::Damaged;
    gap.count = 0;
    EXPECT_EQ(stream::lineOf(gap),
              "14:03:22.181123 gap: an unknown number of records damaged or never completed");
}
