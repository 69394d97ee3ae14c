#include "RecordRedaction.h"

#include "RecordingFixture.h"
#include "StreamText.h"

namespace {

class RecordRedactionTest : public RecordingFixture {
protected:
    /// All records as lines from the driver on, without what they say of people.
    std::string redacted() const {
        std::string lines;
        const stream::StreamSource source(*m_pRing);
        const auto pReader = readerOf(source);
        while (pReader->next({}) == stream::IStreamReader::EResult::Record) {
            stream::StreamRecord record = pReader->record();
            if (record.kind == stream::EKind::Define)
                continue;
            redact(record);
            lines += stream::lineOf(record, pReader->names()).substr(16) + '\n';
        }
        return lines;
    }
};

}  // namespace

TEST_F(RecordRedactionTest, WhatDriversAndPeopleWroteIsMasked) {
    const std::uint16_t lamp = driver("LAMP");
    m_pWriter->valueText(at(0), key("LAMP", "LAMP.TEXT"), "secret");
    m_pWriter->event(at(0), key("LAMP", "LAMP.EVENT"), "secret");
    fid(at(0), "AXIS1", "LAMP", "LAMP.ON");
    stream::FidFields fields("LAMP.SET");
    fields.add("pin", "secret");
    m_pWriter->fid(
        at(0), {.receiver = lamp, .origin = stream::EOrigin::Api, .who = "anna", .fields = fields.bytes()});
    m_pWriter->fidEnd(at(0), 0, lamp, 3, stream::EFidOutcome::Threw, std::chrono::microseconds(5), "secret");
    m_pWriter->command(at(0), 0, stream::EOrigin::Console, "anna", "secret");
    m_pWriter->commandEnd(at(0), 0, 4, true, std::chrono::microseconds(5), "secret");
    m_pWriter->log(at(0), lamp, 3, "MDM", "secret");
    m_pWriter->output(at(0), lamp, "secret");
    m_pWriter->mark(at(0), stream::EOrigin::Console, "anna", "secret");
    m_pWriter->wire(at(0), lamp, true, true, "DSPFIDsecret");
    EXPECT_EQ(
        "LAMP value LAMP.TEXT = \"***\"\n"
        "LAMP event LAMP.EVENT ***\n"
        "AXIS1 fid LAMP.ON x=*** to LAMP: written\n"
        "host fid LAMP.SET pin=*** from api *** to LAMP: begins\n"
        "LAMP fid-end #3 threw after 5 us: ***\n"
        "host command *** from console ***\n"
        "host command-end #4 done after 5 us: ***\n"
        "LAMP log 3 MDM: ***\n"
        "LAMP output ***\n"
        "host mark *** from console ***\n"
        "LAMP wire from driver DSPFID\n",
        redacted());
}

TEST_F(RecordRedactionTest, NumbersAndWhatTheHostSaysStay) {
    m_pWriter->valueInt(at(0), key("LAMP", "LAMP.LEVEL"), 7);
    m_pWriter->event(at(0), key("LAMP", "LAMP.EVENT"), "");
    m_pWriter->fidEnd(at(0), 0, driver("LAMP"), 3, stream::EFidOutcome::Late, std::chrono::milliseconds(2),
                      "");
    m_pWriter->exit(at(0), driver("LAMP"), 9, "signal 9");
    m_pWriter->command(at(0), 0, stream::EOrigin::Console, "", "quit");
    EXPECT_EQ(
        "LAMP value LAMP.LEVEL = 7\n"
        "LAMP event LAMP.EVENT\n"
        "LAMP fid-end #3 late after 2000 us\n"
        "LAMP exit signal 9\n"
        "host command *** from console\n",
        redacted());
}

TEST_F(RecordRedactionTest, RecordsOfTheWrongFormAreNoTrouble) {
    for (int kind = 0; kind < 256; ++kind) {
        for (const std::string text : {"", "\xff", "\xff\xff\xff", "\1"}) {
            stream::StreamRecord record;
            record.kind = static_cast<stream::EKind>(kind);
            record.text = text;
            redact(record);
            EXPECT_LE(record.text.size(), 16u);
        }
    }
}
