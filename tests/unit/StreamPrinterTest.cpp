#include "StreamPrinter.h"

#include "RecordingFixture.h"

namespace {

using EForm = StreamPrinter::EForm;

/// Rings whose second record is missing.
class StreamPrinterTest : public RecordingFixture {
protected:
    StreamPrinterTest() {
        m_pRing->write(at(0), exit("signal 9"));
        const std::uint64_t place = m_pRing->head(stream::ERing::Audit);
        m_pRing->write(at(1), exit("never seen"));
        m_pRing->write(at(2), event("open\x1b"));
        auto words = copyOf(*m_pRing);
        words[wordOf(stream::ERing::Audit, place)] = 0;
        m_pSource = sourceOf(std::move(words));
    }
    std::string printed(StreamPrinter::EForm form, bool isColoured = false) {
        Screen look = screen();
        look.look.isColoured = isColoured;
        StreamPrinter sut(look, form);
        const auto pReader = readerOf(*m_pSource);
        for (;;) {
            switch (pReader->next({})) {
                case stream::IStreamReader::EResult::Record:
                    sut.printRecord(*pReader);
                    break;
                case stream::IStreamReader::EResult::Gap:
                    sut.printGap(*pReader);
                    break;
                default:
                    return std::exchange(m_out, std::ostringstream()).str();
            }
        }
    }

    std::unique_ptr<stream::StreamSource> m_pSource;
};

}  // namespace

TEST_F(StreamPrinterTest, LinesWithTheTimeOrTheDate) {
    EXPECT_EQ(
        "14:03:22.181123 #1 exit signal 9\n"
        "14:03:22.181125 gap: 1 record damaged or never completed, since 14:03:22.181123\n"
        "14:03:22.181125 #1 event  open\\x1b\n",
        printed(EForm::Time));
    EXPECT_EQ(
        "2026-11-22 14:03:22.181123 #1 exit signal 9\n"
        "2026-11-22 14:03:22.181125 gap: 1 record damaged or never completed, since 2026-11-22 "
        "14:03:22.181123\n"
        "2026-11-22 14:03:22.181125 #1 event  open\\x1b\n",
        printed(EForm::Date));
}

TEST_F(StreamPrinterTest, JsonWithTheCursor) {
    EXPECT_EQ(
        R"({"number":1,"time":"2026-11-22T14:03:22.181123Z","kind":"exit","driver":"#1","status":0,)"
        R"("text":"signal 9","cursor":"i1:both:2"})"
        "\n"
        R"({"kind":"gap","reason":"damaged","first":2,"next":3,"count":1,"from":"2026-11-22T14:03:22.181123Z",)"
        R"("to":"2026-11-22T14:03:22.181125Z","cursor":"i1:both:3"})"
        "\n"
        R"({"number":3,"time":"2026-11-22T14:03:22.181125Z","kind":"event","driver":"#1","value":"open\u001b",)"
        R"("cursor":"i1:both:4"})"
        "\n",
        printed(EForm::Json));
}

TEST_F(StreamPrinterTest, WhatIsBadIsColoured) {
    EXPECT_THAT(printed(EForm::Time, true),
                testing::AllOf(testing::HasSubstr(base::Table::coloured("14:03:22.181123 #1 exit signal 9",
                                                                        base::Table::EColour::Bad)),
                               testing::HasSubstr("\n14:03:22.181125 #1 event  open")));
}
