#include "StreamSource.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstddef>

#include "Crc32c.h"
#include "StreamFixture.h"

using stream::ERing;
using stream::StreamSource;

namespace {

class StreamSourceTest : public StreamFixture {
protected:
    std::string refusal(const std::string& path) const {
        std::string error;
        EXPECT_EQ(StreamSource::open(path, error), nullptr);
        return error;
    }
    std::string bytesRefusal(std::vector<std::uint64_t> words) const {
        std::string error;
        EXPECT_EQ(StreamSource::ofBytes(std::move(words), error), nullptr);
        return error;
    }

    TemporaryDirectory m_directory;
};

}  // namespace

TEST_F(StreamSourceTest, TellsWhatTheRingIs) {
    const auto pRing = ringOf(small());
    pRing->write(at(1), exit("x"));
    const StreamSource sut(*pRing);
    EXPECT_EQ(sut.instance(), "i1");
    EXPECT_EQ(sut.started(), at(0));
    EXPECT_EQ(sut.size(ERing::Values), s_small);
    EXPECT_TRUE(sut.isLive());
    EXPECT_EQ(sut.lastNumber(), 1u);
    EXPECT_EQ(sut.head(ERing::Audit), s_small + 64);
}

TEST_F(StreamSourceTest, ReadsMemoryThatIsLent) {
    const auto pRing = ringOf(small());
    pRing->write(at(1), exit("text"));
    auto words = copyOf(*pRing);
    std::string error;
    const auto pSut = StreamSource::ofMemory(words, error);
    ASSERT_NE(pSut, nullptr) << error;
    EXPECT_FALSE(pSut->isLive());
    EXPECT_EQ(pSut->lastNumber(), 1u);
    EXPECT_EQ(pSut->head(ERing::Audit), s_small + 64);
    stream::StreamRecord record;
    std::size_t size = 0;
    EXPECT_TRUE(pSut->read(ERing::Audit, s_small, record, size));
    // No copy was made.
    words[wordOf(ERing::Audit, s_small) + 4] = 0;
    EXPECT_FALSE(pSut->read(ERing::Audit, s_small, record, size));
}

TEST_F(StreamSourceTest, ReadsARecordThatGoesOnAtTheBeginningOfItsRing) {
    const auto pRing = ringOf(small());
    // One of 96 bytes that begins 64 bytes before the end.
    while (pRing->head(ERing::Audit) % s_small != s_small - 64)
        pRing->write(at(1), exit(std::string(32, 'x')));
    const std::uint64_t position = pRing->head(ERing::Audit);
    const std::string text = std::string(40, 'a') + std::string(24, 'b');
    pRing->write(at(2), exit(text));
    stream::StreamRecord record;
    std::size_t size = 0;
    ASSERT_TRUE(sourceOf(copyOf(*pRing))->read(ERing::Audit, position, record, size));
    EXPECT_EQ(record.text, text);
    EXPECT_EQ(size, 96u);
}

TEST_F(StreamSourceTest, ReadsOnlyWhatIsWhole) {
    const auto pRing = ringOf(small());
    pRing->write(at(1), exit("text"));
    stream::StreamRecord record;
    std::size_t size = 0;
    const auto words = copyOf(*pRing);
    EXPECT_TRUE(sourceOf(words)->read(ERing::Audit, s_small, record, size));
    EXPECT_EQ(record.text, "text");
    EXPECT_EQ(size, 64u);
    EXPECT_FALSE(sourceOf(words)->read(ERing::Audit, s_small + 32, record, size));
    EXPECT_FALSE(sourceOf(words)->read(ERing::Values, s_small, record, size));
    // One bit of any of its words.
    for (std::size_t word = 0; word < 5; ++word) {
        for (const int bit : {0, 17, 31, 32, 63}) {
            auto damaged = words;
            damaged[wordOf(ERing::Audit, s_small) + word] ^= std::uint64_t{1} << bit;
            EXPECT_FALSE(sourceOf(damaged)->read(ERing::Audit, s_small, record, size)) << word << ' ' << bit;
        }
    }
}

TEST_F(StreamSourceTest, TheSamePlaceOneLapLaterIsAnotherPosition) {
    const auto pRing = ringOf(small());
    pRing->write(at(1), exit("text"));
    const StreamSource sut(*pRing);
    stream::StreamRecord record;
    std::size_t size = 0;
    EXPECT_TRUE(sut.read(ERing::Audit, s_small, record, size));
    EXPECT_FALSE(sut.read(ERing::Audit, 2 * s_small, record, size));
}

TEST_F(StreamSourceTest, HeaderIsFoundAtTheEndToo) {
    const auto pRing = ringOf(small());
    for (int i = 0; i < 5000; ++i)
        pRing->write(at(i), i % 2 == 0 ? value(i) : exit(std::to_string(i)));
    auto words = copyOf(*pRing);
    const auto whole = all(*readerOf(*sourceOf(words)));
    std::fill_n(words.begin(), 4096 / sizeof(std::uint64_t), 0u);
    const auto pSut = sourceOf(words);
    EXPECT_EQ(pSut->instance(), "i1");
    EXPECT_EQ(pSut->head(ERing::Values), pRing->head(ERing::Values));
    EXPECT_EQ(pSut->head(ERing::Audit), pRing->head(ERing::Audit));
    EXPECT_EQ(pSut->lastNumber(), 5000u);
    EXPECT_EQ(all(*readerOf(*pSut)), whole);
    ASSERT_GT(whole.size(), 1000u);
}

TEST_F(StreamSourceTest, HeadsThatCannotBeAreFoundAgain) {
    const auto pRing = ringOf(small());
    pRing->write(at(1), exit("x"));
    for (const std::uint64_t head : {std::uint64_t{1}, std::uint64_t{s_small} + 8, ~std::uint64_t{31}}) {
        auto words = copyOf(*pRing);
        const auto place = offsetof(stream::StreamHeader, heads) / sizeof(std::uint64_t);
        words[place + 1] = head;
        EXPECT_EQ(sourceOf(words)->head(ERing::Audit), s_small + 64) << head;
    }
}

TEST_F(StreamSourceTest, FileThatIsNoneIsRefused) {
    EXPECT_EQ(refusal("/nowhere/ring"), "\"/nowhere/ring\" cannot be opened: No such file or directory");
    m_directory.write("short", "x");
    EXPECT_EQ(refusal(m_directory.path("short")),
              '"' + m_directory.path("short") + "\" is no file of a stream: it has 1 bytes");
    m_directory.write("zeros", std::string(8192, '\0'));
    EXPECT_EQ(refusal(m_directory.path("zeros")),
              '"' + m_directory.path("zeros") +
                  "\" is no file of a stream: neither its first nor its last page says so");
    EXPECT_EQ(refusal(m_directory.path()),
              '"' + m_directory.path() + "\" is no file of a stream: it is no regular file");
}

TEST_F(StreamSourceTest, FileThatWasCutIsRefused) {
    const auto pRing = ringOf(small());
    auto words = copyOf(*pRing);
    words.resize(words.size() / 2);
    EXPECT_EQ(bytesRefusal(words), "it has 69632 bytes instead of 139264");
}

TEST_F(StreamSourceTest, WriterThatEndsIsSeenByALook) {
    const std::string path = m_directory.path("ring");
    auto pRing = ringOf(small(path));
    pRing->write(at(1), exit("x"));
    std::string error;
    const auto pSut = StreamSource::open(path, error);
    ASSERT_NE(pSut, nullptr) << error;
    EXPECT_TRUE(pSut->lookForWriter());
    const auto pReader = readerOf(*pSut);
    EXPECT_EQ(pReader->next({}), stream::IStreamReader::EResult::Record);
    EXPECT_EQ(pReader->next({}), stream::IStreamReader::EResult::Nothing);
    pRing.reset();
    EXPECT_TRUE(pSut->isLive());
    EXPECT_FALSE(pSut->lookForWriter());
    EXPECT_EQ(pReader->next({}), stream::IStreamReader::EResult::End);
}

TEST_F(StreamSourceTest, FileThatAnotherHasReplacedHasNoWriter) {
    const std::string path = m_directory.path("ring");
    auto pRing = ringOf(small(path));
    pRing->write(at(1), exit("x"));
    std::string error;
    const auto pSut = StreamSource::open(path, error);
    ASSERT_NE(pSut, nullptr) << error;
    pRing.reset();
    pRing = ringOf(small(path));
    EXPECT_FALSE(pSut->lookForWriter());
    EXPECT_EQ(all(*readerOf(*pSut)), (std::vector<std::string>{"1:x"}));
}

TEST_F(StreamSourceTest, RecordWithoutANumberIsNone) {
    const auto pRing = ringOf(small());
    pRing->write(at(1), exit(""));
    auto words = copyOf(*pRing);
    std::uint64_t* const pRecord = words.data() + wordOf(ERing::Audit, s_small);
    pRecord[2] &= 0xffffu;
    stream::StreamConstants constants;
    std::memcpy(&constants, reinterpret_cast<const char*>(words.data()), sizeof constants);
    const std::uint64_t checked[] = {s_small, pRecord[1], pRecord[2], pRecord[3]};
    pRecord[0] = static_cast<std::uint64_t>(stream::crc32c(constants.salt, checked, 4)) << 32 | s_small / 32;
    stream::StreamRecord record;
    std::size_t size = 0;
    EXPECT_FALSE(sourceOf(words)->read(ERing::Audit, s_small, record, size));
}
