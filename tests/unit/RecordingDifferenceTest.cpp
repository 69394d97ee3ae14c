#include "RecordingDifference.h"

#include "RecordingFixture.h"

namespace {

class RecordingDifferenceTest : public RecordingFixture {
protected:
    void read(RecordingDifference& sut) const {
        const stream::StreamSource source(*m_pRing);
        const auto pReader = readerOf(source);
        while (pReader->next({}) == stream::IStreamReader::EResult::Record) {
            // Of the time when the test asked for a name.
            if (pReader->record().kind != stream::EKind::Define)
                sut.add(*pReader);
        }
    }
    std::string printed(const RecordingDifference& sut) {
        sut.print(screen());
        return std::exchange(m_out, std::ostringstream()).str();
    }

    RecordingDifference m_sut{at(10)};
};

}  // namespace

TEST_F(RecordingDifferenceTest, TellsValuesAndDriversThatAreOtherwise) {
    m_pWriter->start(at(0), driver("LAMP"), 4711, "");
    m_pWriter->valueInt(at(1), key("AXIS1", "AXIS1.POSITION"), 1);
    m_pWriter->valueText(at(2), key("AXIS1", "AXIS1.NAME"), "left");
    m_pWriter->valueBool(at(3), key("AXIS1", "AXIS1.GONE"), true);
    m_pWriter->valueInt(at(4), key("AXIS1", "AXIS1.BACK"), 1);
    m_pWriter->valueInt(at(5), key("AXIS1", "AXIS1.SAME"), 1);
    m_pWriter->valueFloat(at(10), key("LAMP", "LAMP.LEVEL"), 0.5f);
    // The moment.
    m_pWriter->valueInt(at(11), key("AXIS1", "AXIS1.POSITION"), 2);
    m_pWriter->valueInt(at(12), key("AXIS1", "AXIS1.POSITION"), 3);
    m_pWriter->valueUnset(at(13), key("AXIS1", "AXIS1.GONE"));
    m_pWriter->valueInt(at(14), key("AXIS1", "AXIS1.BACK"), 2);
    m_pWriter->valueInt(at(15), key("AXIS1", "AXIS1.BACK"), 1);
    m_pWriter->valueText(at(16), key("AXIS1", "AXIS1.NEW"), "x");
    m_pWriter->exit(at(17), driver("LAMP"), 9, "signal 9");
    m_pWriter->stale(at(18), driver("LAMP"), 1, "signal 9");
    read(m_sut);
    EXPECT_EQ(
        "driver  value           before              after            changes\n"
        "AXIS1   AXIS1.GONE      true                -                1\n"
        "AXIS1   AXIS1.NEW       -                   \"x\"              1\n"
        "AXIS1   AXIS1.POSITION  1                   3                2\n"
        "LAMP    (driver)        runs, process 4711  ended, signal 9  1\n"
        "LAMP    LAMP.LEVEL      0.5                 0.5 (stale)      1\n"
        "1 more changed meanwhile and is as before\n",
        printed(m_sut));
    EXPECT_EQ(R"({"after":"3","before":"1","changes":2,"driver":"AXIS1","value":"AXIS1.POSITION"})",
              m_sut.json()[2].dump());
    EXPECT_EQ(5u, m_sut.json().size());
}

TEST_F(RecordingDifferenceTest, ValueThatComesAgainIsStaleNoMore) {
    m_pWriter->valueInt(at(1), key("LAMP", "LAMP.LEVEL"), 1);
    m_pWriter->stale(at(2), driver("LAMP"), 1, "signal 9");
    m_pWriter->valueInt(at(11), key("LAMP", "LAMP.LEVEL"), 1);
    read(m_sut);
    EXPECT_EQ(
        "driver  value       before     after  changes\n"
        "LAMP    LAMP.LEVEL  1 (stale)  1      1\n",
        printed(m_sut));
}

TEST_F(RecordingDifferenceTest, NothingIsSaid) {
    m_pWriter->valueInt(at(1), key("LAMP", "LAMP.LEVEL"), 1);
    read(m_sut);
    EXPECT_EQ("nothing is otherwise\n", printed(m_sut));
}

TEST_F(RecordingDifferenceTest, WhatAHostHadIsGoneWithIt) {
    m_pWriter->valueInt(at(1), key("LAMP", "LAMP.LEVEL"), 1);
    m_pWriter->valueInt(at(2), key("LAMP", "LAMP.POWER"), 1);
    read(m_sut);
    startAnew("i2");
    m_pWriter->valueInt(at(11), key("LAMP", "LAMP.POWER"), 1);
    read(m_sut);
    EXPECT_EQ(
        "driver  value       before  after  changes\n"
        "LAMP    LAMP.LEVEL  1       -      1\n"
        "1 more changed meanwhile and is as before\n",
        printed(m_sut));
}
