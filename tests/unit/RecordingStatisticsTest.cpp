#include "RecordingStatistics.h"

#include "RecordingFixture.h"

namespace {

class RecordingStatisticsTest : public RecordingFixture {
protected:
    void count() {
        const stream::StreamSource source(*m_pRing);
        const auto pReader = readerOf(source);
        while (pReader->next({}) == stream::IStreamReader::EResult::Record) {
            if (pReader->record().kind != stream::EKind::Define)
                m_sut.addRecord(*pReader);
        }
    }

    RecordingStatistics m_sut;
};

}  // namespace

TEST_F(RecordingStatisticsTest, CountsByDriverAndKindWithTheTimeAndWhatIsMissing) {
    m_pWriter->valueInt(at(90'000'000), key("AXIS1", "AXIS1.POSITION"), 1);
    m_pWriter->valueFloat(at(1), key("AXIS1", "AXIS1.POSITION"), 1);
    m_pWriter->exit(at(0), driver("LAMP"), 9, "signal 9");
    const std::array<std::uint64_t, 5> words{7, 10, 3, 0, 0};
    m_pRing->write(at(5),
                   {.kind = stream::EKind::Gap,
                    .texts = {std::string_view(reinterpret_cast<const char*>(words.data()), sizeof words)}});
    count();
    stream::StreamGap gap;
    gap.count = 4;
    m_sut.addGap(gap);
    m_sut.print(screen());
    EXPECT_EQ(
        "driver  kind   records\n"
        "AXIS1   value  2\n"
        "LAMP    exit   1\n"
        "3 records, 2026-11-22 14:03:22 to 2026-11-22 14:04:52 (90 s)\n"
        "2 gaps, 7 records are missing\n",
        out());
    EXPECT_EQ(
        R"({"counts":[{"driver":"AXIS1","kind":"value","records":2},{"driver":"LAMP","kind":"exit","records":1}],)"
        R"("from":"2026-11-22T14:03:22.181123Z","gaps":2,"missing":7,"records":3,)"
        R"("to":"2026-11-22T14:04:52.181123Z"})",
        m_sut.json().dump());
    EXPECT_EQ(3u, m_sut.records());
}

TEST_F(RecordingStatisticsTest, NothingIsSaid) {
    m_sut.print(screen());
    EXPECT_EQ("no records\n", out());
    EXPECT_EQ(R"({"counts":[],"from":null,"gaps":0,"missing":0,"records":0,"to":null})", m_sut.json().dump());
}
