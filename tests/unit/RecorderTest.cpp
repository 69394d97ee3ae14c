#include "Recorder.h"

#include <fcntl.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <mutex>

#include "HangGuard.h"
#include "SegmentReader.h"
#include "StreamFixture.h"
#include "StreamText.h"

using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using Lines = std::vector<std::string>;

namespace {

class RecorderTest : public StreamFixture {
protected:
    RecorderTest() : m_pRing(ringOf(small())) {}

    std::string place() const { return m_directory.path("recording"); }
    Recorder::Settings settings() const { return {.directory = place()}; }
    std::unique_ptr<Recorder> recorder(const Recorder::Settings& settings,
                                       std::vector<RingPlace::Left> left = {}) {
        return std::make_unique<Recorder>(*m_pRing, settings, std::move(left),
                                          [this](const std::string& line, bool) {
                                              const std::lock_guard lock(m_mutex);
                                              m_said.push_back(line);
                                          });
    }
    static Lines linesOf(const std::string& path) {
        std::string error;
        const auto pReader = stream::SegmentReader::open(path, error);
        Lines lines{error};
        while (pReader && pReader->next({}) == stream::IStreamReader::EResult::Record)
            lines.push_back(stream::lineOf(pReader->record(), pReader->names()));
        return lines;
    }
    Lines kept() const {
        Lines lines;
        for (const std::string& path : Keeper::segments(place())) {
            const Lines more = linesOf(path);
            lines.insert(lines.end(), more.begin(), more.end());
        }
        return lines;
    }
    Lines boxes() const { return BlackBox::filesIn(place() + "/blackbox"); }

    TemporaryDirectory m_directory;
    std::unique_ptr<stream::StreamRing> m_pRing;
    std::mutex m_mutex;
    Lines m_said;
};

}  // namespace

TEST_F(RecorderTest, WhatIsRecordedIsOnTheDiskWhenItHasStopped) {
    const auto pSut = recorder(settings());
    pSut->start([] {});
    pSut->observation().bareLine("A", "out of paper");
    EXPECT_TRUE(pSut->stop(c_hangGuard));
    EXPECT_THAT(kept(), Contains(EndsWith("A output out of paper")));
    EXPECT_EQ(m_said, Lines{});
}

TEST_F(RecorderTest, WhatIsDoneBeforeTheLastRoundIsOnTheDisk) {
    const auto pSut = recorder(settings());
    Recorder* const pRecorder = pSut.get();
    pSut->start([pRecorder] { pRecorder->observation().bareLine("A", "held back"); });
    EXPECT_TRUE(pSut->stop(c_hangGuard));
    EXPECT_THAT(kept(), Contains(EndsWith("A output held back")));
}

TEST_F(RecorderTest, DriverThatEndsUnaskedHasABlackBox) {
    const auto pSut = recorder(settings());
    pSut->start([] {});
    pSut->observation().bareLine("A", "no device");
    pSut->observation().exited("A", 9, "signal 9 (Killed)", true);
    pSut->observation().exited("A", 9, "signal 9 (Killed)", true);
    pSut->observation().exited("B", 0, "unloaded", false);
    EXPECT_TRUE(pSut->stop(c_hangGuard));
    ASSERT_EQ(boxes().size(), 1u);
    EXPECT_THAT(boxes()[0], EndsWith("-A-signal-9-Killed.seg"));
    EXPECT_THAT(linesOf(boxes()[0]), Contains(EndsWith("A output no device")));
    EXPECT_THAT(linesOf(boxes()[0]), Contains(EndsWith("A exit signal 9 (Killed)")));
}

TEST_F(RecorderTest, BlackBoxIsThereSomeTimeAfterTheEnd) {
    auto soon = settings();
    soon.after = std::chrono::seconds(0);
    const auto pSut = recorder(soon);
    pSut->start([] {});
    pSut->observation().hangs("A", "hung for 10 s");
    EXPECT_TRUE(eventually([this] { return boxes().size() == 1; }));
    EXPECT_TRUE(pSut->stop(c_hangGuard));
}

TEST_F(RecorderTest, RingThatADeadHostHasLeftHasABlackBox) {
    std::vector<RingPlace::Left> left;
    {
        const auto pDead = ringOf(small());
        Observation observation(*pDead);
        observation.bareLine("A", "last words");
        left.push_back({.pSource = sourceOf(copyOf(*pDead)), .recording = m_directory.path("other")});
    }
    std::filesystem::create_directory(m_directory.path("other"));
    const auto pSut = recorder({}, std::move(left));
    pSut->start([] {});
    EXPECT_TRUE(pSut->stop(c_hangGuard));
    const Lines found = BlackBox::filesIn(m_directory.path("other") + "/blackbox");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_THAT(found[0], EndsWith("-host-killed.seg"));
    EXPECT_THAT(linesOf(found[0]), Contains(EndsWith("A output last words")));
    const Lines segments = Keeper::segments(m_directory.path("other"));
    ASSERT_EQ(segments.size(), 1u);
    EXPECT_THAT(linesOf(segments[0]), Contains(EndsWith("A output last words")));
    EXPECT_FALSE(std::filesystem::exists(place()));
}

TEST_F(RecorderTest, FilesOfADeadHostGoOnceItsBlackBoxIsThere) {
    std::filesystem::create_directories(m_directory.path("shm/ring"));
    m_directory.write("shm/ring/stream.ring", "x");
    const auto open = [this](const std::string& name) {
        return base::UniqueFd(::open(m_directory.path(name).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    };
    std::vector<RingPlace::Left> left;
    {
        const auto pDead = ringOf(small());
        Observation observation(*pDead);
        observation.bareLine("A", "last words");
        left.push_back({.pSource = sourceOf(copyOf(*pDead)),
                        .recording = m_directory.path("other"),
                        .directory = open("shm/ring"),
                        .parent = open("shm"),
                        .name = "ring"});
    }
    std::filesystem::create_directory(m_directory.path("other"));
    const auto pSut = recorder({}, std::move(left));
    EXPECT_TRUE(m_directory.contains("shm/ring/stream.ring"));
    pSut->start([] {});
    EXPECT_TRUE(eventually([this] { return !m_directory.contains("shm/ring"); }));
    EXPECT_EQ(BlackBox::filesIn(m_directory.path("other") + "/blackbox").size(), 1u);
    EXPECT_TRUE(pSut->stop(c_hangGuard));
}

TEST_F(RecorderTest, WithoutADirectoryNothingIsWritten) {
    const auto pSut = recorder({});
    pSut->start([] {});
    pSut->observation().exited("A", 9, "signal 9 (Killed)", true);
    EXPECT_TRUE(pSut->stop(c_hangGuard));
    EXPECT_FALSE(std::filesystem::exists(place()));
}

TEST_F(RecorderTest, DirectoryThatCannotBeHadIsSaid) {
    const auto pSut = recorder({.directory = "/proc/recording"});
    pSut->start([] {});
    EXPECT_TRUE(pSut->stop(c_hangGuard));
    EXPECT_EQ(
        m_said,
        Lines{"nothing is recorded beyond the last minutes: \"/proc/recording\" cannot be made: No such "
              "file or directory"});
}
