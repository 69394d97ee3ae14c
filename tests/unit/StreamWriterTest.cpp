#include "StreamWriter.h"

#include <limits>

#include "FidFields.h"
#include "KeyTable.h"
#include "StreamFixture.h"
#include "StreamText.h"

using stream::EFidOutcome;
using stream::EOrigin;
using stream::StreamWriter;
using namespace std::string_literals;

namespace {

class StreamWriterTest : public StreamFixture {
protected:
    StreamWriterTest() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        m_axis = m_keys.driver("AXIS1", at(0));
        m_lamp = m_keys.driver("LAMP", at(0));
        m_key = {m_keys.key(m_axis, "AXIS1.POSITION", at(0)), "AXIS1.POSITION"};
        m_from = m_pRing->lastNumber() + 1;
    }
    /// What was written since the beginning, without the time, as a line and as JSON.
    std::string said() const {
        std::string text;
        const stream::StreamSource source(*m_pRing);
        const auto pReader =
            readerOf(source, {stream::StreamCursor::EPlace::Exact, "i1", std::nullopt, m_from});
        while (pReader->next({}) == stream::IStreamReader::EResult::Record) {
            text += stream::lineOf(pReader->record(), pReader->names()).substr(16) + '\n';
            std::string json;
            stream::appendJson(json, pReader->record(), pReader->names());
            const std::string beginning = "{\"number\":" + std::to_string(pReader->record().number) +
                                          ",\"time\":\"2026-11-22T14:03:22.181124Z\",";
            EXPECT_EQ(json.substr(0, beginning.size()), beginning);
            text += json.substr(beginning.size() - 1) + '\n';
        }
        return text;
    }

    const std::unique_ptr<stream::StreamRing> m_pRing = ringOf(small());
    stream::KeyTable m_keys{*m_pRing};
    StreamWriter m_sut{*m_pRing, m_keys};
    std::uint16_t m_axis = 0;
    std::uint16_t m_lamp = 0;
    StreamWriter::Key m_key;
    std::uint64_t m_from = 0;
    const stream::Time m_when = at(1);
};

}  // namespace

TEST_F(StreamWriterTest, ValuesOfEachType) {
    EXPECT_EQ(m_sut.valueText(m_when, m_key, "on \"air\"\n"), m_from);
    m_sut.valueFloat(m_when, m_key, 12.5f);
    m_sut.valueInt(m_when, m_key, -7);
    m_sut.valueBool(m_when, m_key, true);
    m_sut.valueUnset(m_when, m_key);
    EXPECT_EQ(said(),
              "AXIS1 value AXIS1.POSITION = \"on \"air\"\\n\"\n"
              R"(,"kind":"value","driver":"AXIS1","key":"AXIS1.POSITION","value":"on \"air\"\u000a"})"
              "\nAXIS1 value AXIS1.POSITION = 12.5\n"
              R"(,"kind":"value","driver":"AXIS1","key":"AXIS1.POSITION","value":12.5})"
              "\nAXIS1 value AXIS1.POSITION = -7\n"
              R"(,"kind":"value","driver":"AXIS1","key":"AXIS1.POSITION","value":-7})"
              "\nAXIS1 value AXIS1.POSITION = true\n"
              R"(,"kind":"value","driver":"AXIS1","key":"AXIS1.POSITION","value":true})"
              "\nAXIS1 value AXIS1.POSITION unset\n"
              R"(,"kind":"value","driver":"AXIS1","key":"AXIS1.POSITION","value":null})"
              "\n");
}

TEST_F(StreamWriterTest, NumberThatJsonHasNotIsAText) {
    m_sut.valueFloat(m_when, m_key, std::numeric_limits<float>::infinity());
    EXPECT_EQ(said(),
              "AXIS1 value AXIS1.POSITION = inf\n"
              R"(,"kind":"value","driver":"AXIS1","key":"AXIS1.POSITION","value":"inf"})"
              "\n");
}

TEST_F(StreamWriterTest, KeyWithoutANumberIsItsText) {
    m_sut.event(m_when, {static_cast<std::uint32_t>(m_axis) << 16, "AXIS1.LIMIT"}, "upper");
    EXPECT_EQ(said(),
              "AXIS1 event AXIS1.LIMIT upper\n"
              R"(,"kind":"event","driver":"AXIS1","key":"AXIS1.LIMIT","value":"upper"})"
              "\n");
}

TEST_F(StreamWriterTest, FidOfADriver) {
    stream::FidFields fields("LAMP.BRIGHTNESS");
    fields.add("percent", "40");
    m_sut.fid(
        m_when,
        {.sender = m_axis, .receiver = m_lamp, .outcome = EFidOutcome::Written, .fields = fields.bytes()});
    EXPECT_EQ(said(),
              "AXIS1 fid LAMP.BRIGHTNESS percent=40 to LAMP: written\n"
              R"(,"kind":"fid","driver":"AXIS1","fid":"LAMP.BRIGHTNESS","parameters":[["percent","40"]],)"
              R"("receiver":"LAMP","origin":"driver","outcome":"written"})"
              "\n");
}

TEST_F(StreamWriterTest, FidOfAnOperatorThatReachesNobody) {
    const stream::FidFields fields("LAMPE.ON");
    m_sut.fid(m_when, {.origin = EOrigin::Api,
                       .outcome = EFidOutcome::NoSuchDriver,
                       .who = "anna",
                       .fields = fields.bytes()});
    EXPECT_EQ(said(),
              "host fid LAMPE.ON from api anna: no such driver\n"
              R"(,"kind":"fid","driver":"host","fid":"LAMPE.ON","parameters":[],"origin":"api","who":"anna",)"
              R"("outcome":"no such driver"})"
              "\n");
}

TEST_F(StreamWriterTest, EndOfAFid) {
    m_sut.fidEnd(m_when, m_axis, m_lamp, 17, EFidOutcome::Threw, std::chrono::microseconds(1234),
                 "bad percent");
    m_sut.fidEnd(m_when, m_axis, m_lamp, 18, EFidOutcome::Late, std::chrono::milliseconds(2), "");
    EXPECT_EQ(
        said(),
        "LAMP fid-end #17 threw after 1234 us: bad percent\n"
        R"(,"kind":"fid-end","driver":"LAMP","of":17,"outcome":"threw","took_us":1234,"text":"bad percent"})"
        "\nLAMP fid-end #18 late after 2000 us\n"
        R"(,"kind":"fid-end","driver":"LAMP","of":18,"outcome":"late","took_us":2000})"
        "\n");
}

TEST_F(StreamWriterTest, CommandAndItsEnd) {
    m_sut.command(m_when, 0, EOrigin::Console, "", "reloadDriver LAMP");
    m_sut.commandEnd(m_when, 0, 7, false, std::chrono::microseconds(5), "no such driver");
    EXPECT_EQ(
        said(),
        "host command reloadDriver LAMP from console\n"
        R"(,"kind":"command","driver":"host","origin":"console","line":"reloadDriver LAMP"})"
        "\nhost command-end #7 failed after 5 us: no such driver\n"
        R"(,"kind":"command-end","driver":"host","of":7,"ok":false,"took_us":5,"text":"no such driver"})"
        "\n");
}

TEST_F(StreamWriterTest, LifeOfADriver) {
    m_sut.start(m_when, m_lamp, 4711, "");
    m_sut.configuration(m_when, m_lamp, true, std::chrono::microseconds(12), "setConfiguration");
    m_sut.hang(m_when, m_lamp, "takes no messages for 10 s");
    m_sut.exit(m_when, m_lamp, 9, "signal 9");
    m_sut.stale(m_when, m_lamp, 3, "killed by signal 9");
    m_sut.restart(m_when, m_lamp, "in 2 s");
    EXPECT_EQ(
        said(),
        "LAMP start process 4711\n"
        R"(,"kind":"start","driver":"LAMP","process":4711})"
        "\nLAMP configuration setConfiguration done after 12 us\n"
        R"(,"kind":"configuration","driver":"LAMP","ok":true,"took_us":12,"operation":"setConfiguration"})"
        "\nLAMP hang takes no messages for 10 s\n"
        R"(,"kind":"hang","driver":"LAMP","text":"takes no messages for 10 s"})"
        "\nLAMP exit signal 9\n"
        R"(,"kind":"exit","driver":"LAMP","status":9,"text":"signal 9"})"
        "\nLAMP stale 3 values: killed by signal 9\n"
        R"(,"kind":"stale","driver":"LAMP","values":3,"text":"killed by signal 9"})"
        "\nLAMP restart in 2 s\n"
        R"(,"kind":"restart","driver":"LAMP","text":"in 2 s"})"
        "\n");
}

TEST_F(StreamWriterTest, LinesMarksMergingAndMessages) {
    m_sut.log(m_when, 0, 2, "MDM", "no such driver");
    m_sut.output(m_when, m_lamp, "terminate called\x1b[2J");
    m_sut.mark(m_when, EOrigin::Api, "anna", "before the show");
    m_sut.merged(m_when, m_axis, 100, 90, 10);
    m_sut.wire(m_when, m_lamp, true, true, "SETVAB\1A\1"s);
    EXPECT_EQ(
        said(),
        "host log 2 MDM: no such driver\n"
        R"(,"kind":"log","driver":"host","level":2,"output":"MDM","text":"no such driver"})"
        "\nLAMP output terminate called\\x1b[2J\n"
        R"(,"kind":"output","driver":"LAMP","text":"terminate called\u001b[2J"})"
        "\nhost mark before the show from api anna\n"
        R"(,"kind":"mark","driver":"host","origin":"api","who":"anna","text":"before the show"})"
        "\nAXIS1 merged 100 received, 90 merged, 10 delivered\n"
        R"(,"kind":"merged","driver":"AXIS1","received":100,"merged":90,"delivered":10})"
        "\nLAMP wire from driver SETVAB \"A\" true\n"
        R"(,"kind":"wire","driver":"LAMP","direction":"from driver","ok":true,"message":"SETVAB \"A\" true",)"
        R"("bytes":"534554564142014101"})"
        "\n");
}

TEST_F(StreamWriterTest, CountsAreSaidOnceASecondWhereTheyAreNews) {
    m_sut.valueInt(m_when, m_key, 1);
    m_sut.valueInt(m_when, m_key, 2);
    m_sut.output(m_when, m_lamp, "x");
    m_from = m_pRing->lastNumber() + 1;
    m_sut.tick(m_when);
    m_sut.tick(m_when + std::chrono::milliseconds(999));
    m_sut.tick(m_when + std::chrono::seconds(1));
    EXPECT_EQ(said(),
              "AXIS1 counts value 2, define 2\n"
              R"(,"kind":"counts","driver":"AXIS1","counts":{"value":2,"define":2}})"
              "\nLAMP counts output 1, define 1\n"
              R"(,"kind":"counts","driver":"LAMP","counts":{"output":1,"define":1}})"
              "\n");
    m_sut.output(m_when, m_lamp, "y");
    const auto before = m_pRing->lastNumber();
    m_sut.tick(m_when + std::chrono::milliseconds(1500));
    EXPECT_EQ(m_pRing->lastNumber(), before);
    m_sut.tick(m_when + std::chrono::milliseconds(2000));
    EXPECT_EQ(m_pRing->lastNumber(), before + 1);
}

TEST_F(StreamWriterTest, WhatWasRefusedIsCounted) {
    for (int i = 0; i < 10'000 && m_pRing->refused(m_lamp) == 0; ++i)
        m_sut.output(m_when, m_lamp, "0123456789");
    m_from = m_pRing->lastNumber() + 1;
    m_sut.tick(m_when);
    EXPECT_NE(said().find("refused 1"), std::string::npos);
}
