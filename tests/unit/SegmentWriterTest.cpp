#include "SegmentWriter.h"

#include <sys/stat.h>

#include <filesystem>

#include "ForkedProcess.h"
#include "NoDescriptors.h"
#include "PrivateMachine.h"
#include "SegmentReader.h"
#include "StreamFixture.h"

using stream::EKind;
using stream::SegmentReader;
using stream::SegmentWriter;
using stream::StreamRecord;

namespace {

class SegmentWriterTest : public StreamFixture {
protected:
    SegmentWriterTest() {
        m_names.define(1u << 16, "AXIS1");
        m_names.define(1u << 16 | 1, "AXIS1.POSITION");
        m_names.define(2u << 16, "LAMP");
    }
    StreamRecord record(std::uint64_t number, std::string text, EKind kind = EKind::Exit) const {
        StreamRecord made;
        made.number = number;
        made.time = at(static_cast<std::int64_t>(number) * 64);
        made.kind = kind;
        made.key = 1u << 16;
        made.text = std::move(text);
        return made;
    }
    std::unique_ptr<SegmentWriter> writer(const std::string& name = "1.seg") const {
        std::string error;
        auto pWriter = SegmentWriter::create(m_directory.path(name), "i1", error);
        EXPECT_NE(pWriter, nullptr) << error;
        return pWriter;
    }
    std::unique_ptr<SegmentReader> reader(const std::string& name = "1.seg") const {
        std::string error;
        auto pReader = SegmentReader::open(m_directory.path(name), error);
        EXPECT_NE(pReader, nullptr) << error;
        return pReader;
    }

    TemporaryDirectory m_directory;
    stream::KeyNames m_names;
};

}  // namespace

TEST_F(SegmentWriterTest, RecordsComeBackAsTheyWere) {
    StreamRecord value = record(3, "", EKind::Int);
    value.key = 1u << 16 | 1;
    value.value = 7;
    StreamRecord full = record(9, "text");
    full.keyText = "key";
    full.cause = 3;
    full.isCut = true;
    value.time = full.time = stream::Time(std::chrono::nanoseconds(1'795'356'202'181'123'400));
    const auto pSut = writer();
    pSut->add(value, m_names);
    pSut->add(full, m_names);
    EXPECT_EQ(pSut->writeFrame(), "");
    EXPECT_EQ(pSut->sync(), "");
    const auto pReader = reader();
    ASSERT_EQ(pReader->next({}), stream::IStreamReader::EResult::Record);
    EXPECT_EQ(pReader->record(), value);
    EXPECT_EQ(pReader->names().key(pReader->record()), "AXIS1.POSITION");
    EXPECT_EQ(pReader->names().driver(1), "AXIS1");
    ASSERT_EQ(pReader->next({}), stream::IStreamReader::EResult::Record);
    EXPECT_EQ(pReader->record(), full);
    EXPECT_EQ(pReader->next({}), stream::IStreamReader::EResult::End);
    EXPECT_EQ(pSut->size(), std::filesystem::file_size(m_directory.path("1.seg")));
}

TEST_F(SegmentWriterTest, EachFrameHasItsOwnNames) {
    const auto pSut = writer();
    StreamRecord fid = record(1, std::string(1, '\0') + "\2ON", EKind::Fid);
    fid.value = 2;
    pSut->add(fid, m_names);
    EXPECT_EQ(pSut->writeFrame(), "");
    pSut->add(record(2, "x"), m_names);
    EXPECT_EQ(pSut->writeFrame(), "");
    const auto pReader = reader();
    pReader->next({});
    EXPECT_EQ(pReader->names().driver(1), "AXIS1");
    EXPECT_EQ(pReader->names().driver(2), "LAMP");
    pReader->next({});
    EXPECT_EQ(pReader->names().driver(1), "AXIS1");
    EXPECT_EQ(pReader->names().driver(2), "#2");
}

TEST_F(SegmentWriterTest, NothingIsNoFrame) {
    const auto pSut = writer();
    EXPECT_TRUE(pSut->isEmpty());
    EXPECT_EQ(pSut->writeFrame(), "");
    EXPECT_EQ(pSut->size(), 0u);
}

TEST_F(SegmentWriterTest, FrameIsFullLongBeforeItIsTooLarge) {
    const auto pSut = writer();
    std::uint64_t number = 0;
    while (!pSut->isFull())
        pSut->add(record(++number, std::string(4000, 'x')), m_names);
    EXPECT_EQ(pSut->writeFrame(), "");
    EXPECT_FALSE(pSut->isFull());
    EXPECT_EQ(reader()->records(), number);
}

TEST_F(SegmentWriterTest, FileIsItsOwnersAloneAndNeverAnothers) {
    const auto pSut = writer();
    struct stat status {};
    ASSERT_EQ(::stat(m_directory.path("1.seg").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    std::string error;
    EXPECT_EQ(SegmentWriter::create(m_directory.path("1.seg"), "i1", error), nullptr);
    EXPECT_EQ(error, '"' + m_directory.path("1.seg") + "\" cannot be made: File exists");
}

TEST_F(SegmentWriterTest, FileThatCannotBeHadWholeIsNotInTheWayOfTheNextTry) {
    {
        // The file is made, and its directory cannot be opened to be synced.
        const NoDescriptors none(1);
        std::string error;
        EXPECT_EQ(SegmentWriter::create(m_directory.path("1.seg"), "i1", error), nullptr);
        EXPECT_EQ(error, '"' + m_directory.path() + "\" cannot be synced: Too many open files");
    }
    const auto pSut = writer();
    pSut->add(record(1, "x"), m_names);
    EXPECT_EQ(pSut->writeFrame(), "");
}

TEST_F(SegmentWriterTest, FullDiskIsAnErrorAndTheNextFrameIsWhole) {
    const std::string place = m_directory.path("small");
    std::filesystem::create_directory(place);
    ForkedProcess child([&](const ForkedProcess::Side& side) {
        if (const std::string missing = PrivateMachine::enterWithSmall(place, "16k"); !missing.empty()) {
            side.tell("skip " + missing);
            return;
        }
        std::string error;
        const auto pSut = SegmentWriter::create(place + "/1.seg", "i1", error);
        pSut->add(record(1, "first"), m_names);
        side.tell("first: " + pSut->writeFrame());
        // Nothing packs this.
        std::string noise;
        std::uint64_t word = 1;
        for (std::uint64_t number = 2; number < 20; ++number) {
            noise.clear();
            for (int i = 0; i < 4000; ++i)
                noise += static_cast<char>((word = word * 6364136223846793005u + 1442695040888963407u) >> 56);
            pSut->add(record(number, noise), m_names);
        }
        side.tell("noise: " + pSut->writeFrame());
        pSut->add(record(20, "last"), m_names);
        side.tell("last: " + pSut->writeFrame());
        const auto pReader = SegmentReader::open(place + "/1.seg", error);
        std::string found;
        for (const std::string& each : all(*pReader))
            found += each + ' ';
        side.tell(found);
    });
    const std::string first = child.hear();
    if (first.rfind("skip ", 0) == 0)
        GTEST_SKIP() << first.substr(5);
    EXPECT_EQ(first, "first: ");
    EXPECT_EQ(child.hear(), "noise: \"" + place + "/1.seg\" cannot be written: No space left on device");
    EXPECT_EQ(child.hear(), "last: ");
    EXPECT_EQ(child.hear(), "1:first 20:last ");
}
