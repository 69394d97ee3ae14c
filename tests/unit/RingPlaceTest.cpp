#include "RingPlace.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Observation.h"
#include "PrivateMachine.h"
#include "TemporaryDirectory.h"

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace {

/// On a file system in memory of the test's own, mounted on a machine of its own.
class RingPlaceTest : public testing::Test {
protected:
    void SetUp() override {
        const std::string missing = PrivateMachine::enter();
        if (!missing.empty())
            GTEST_SKIP() << missing;
        mount("32m");
    }
    void TearDown() override { ::umount2(parent().c_str(), MNT_DETACH); }

    std::string parent() const { return m_directory.path("shm"); }
    void mount(const std::string& size) const {
        fs::create_directories(parent());
        ::umount2(parent().c_str(), MNT_DETACH);
        ASSERT_EQ(::mount("tmpfs", parent().c_str(), "tmpfs", 0, ("mode=1777,size=" + size).c_str()), 0);
    }
    RingPlace::Settings settings(std::optional<std::size_t> size = RingPlace::s_smallest) const {
        return {.isFile = true,
                .size = size,
                .queueDirectory = {},
                .recording = "/site/recording",
                .parent = parent()};
    }
    std::vector<std::string> entries() const {
        std::vector<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(parent()))
            found.push_back(entry.path());
        return found;
    }
    /// As a host that is killed leaves it.
    void leaveRing(const RingPlace::Settings& place) const {
        const pid_t host = ::fork();
        if (host == 0) {
            auto* const pPlace = new RingPlace(place);
            Observation observation(*pPlace->ring());
            observation.bareLine("A", "last words");
            ::_exit(0);
        }
        ASSERT_EQ(::waitpid(host, nullptr, 0), host);
    }

    TemporaryDirectory m_directory;
};

}  // namespace

TEST_F(RingPlaceTest, FileLiesInADirectoryOfItsOwnAndGoesWithIt) {
    {
        const RingPlace sut(settings());
        EXPECT_EQ(sut.warning(), "");
        EXPECT_THAT(sut.path(),
                    testing::MatchesRegex(parent() + "/mfd-[0-9]+-ring-[A-Za-z0-9]{6}/stream.ring"));
        ASSERT_NE(sut.ring(), nullptr);
        EXPECT_EQ(sut.ring()->size(stream::ERing::Values), 65536u);
        EXPECT_EQ(sut.ring()->size(stream::ERing::Audit), 196608u);
        struct stat info {};
        ASSERT_EQ(::stat(sut.path().c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0600u);
    }
    EXPECT_TRUE(entries().empty());
}

TEST_F(RingPlaceTest, FileLiesBesideTheQueuesWhereTheirDirectoryIsNamed) {
    auto beside = settings();
    beside.queueDirectory = parent() + "/queues";
    fs::create_directory(beside.queueDirectory);
    {
        const RingPlace sut(beside);
        EXPECT_EQ(sut.path(), parent() + "/queues/stream.ring");
    }
    EXPECT_EQ(entries(), std::vector<std::string>{parent() + "/queues"});
}

TEST_F(RingPlaceTest, QueuesOnADiskAreNoPlaceForIt) {
    auto beside = settings();
    beside.queueDirectory = m_directory.path("disk");
    fs::create_directory(beside.queueDirectory);
    const RingPlace sut(beside);
    EXPECT_THAT(sut.path(), testing::StartsWith(parent() + "/mfd-"));
}

TEST_F(RingPlaceTest, TakesAtMostTwoThirdsOfTheRoom) {
    const RingPlace sut(settings(std::nullopt));
    ASSERT_NE(sut.ring(), nullptr);
    EXPECT_EQ(sut.ring()->size(stream::ERing::Values) + sut.ring()->size(stream::ERing::Audit),
              std::size_t{16} << 20);
}

TEST_F(RingPlaceTest, WithoutRoomItIsInMemoryWithoutAFileAndSaysSo) {
    mount("1m");
    const RingPlace sut(settings(std::nullopt));
    EXPECT_EQ(sut.path(), "");
    EXPECT_NE(sut.ring(), nullptr);
    EXPECT_THAT(sut.warning(),
                testing::StartsWith("the stream is kept in memory without a file: there is too little "
                                    "room in \"" +
                                    parent()));
    EXPECT_TRUE(entries().empty());
}

TEST_F(RingPlaceTest, SizeThatDoesNotFitIsSaid) {
    const RingPlace sut(settings(std::size_t{64} << 20));
    EXPECT_EQ(sut.path(), "");
    EXPECT_THAT(sut.warning(), HasSubstr("stream.ring\": 65544 KiB cannot be had: No space left on device"));
    EXPECT_TRUE(entries().empty());
}

TEST_F(RingPlaceTest, WithoutAFileItIsInMemory) {
    auto without = settings();
    without.isFile = false;
    const RingPlace sut(without);
    EXPECT_NE(sut.ring(), nullptr);
    EXPECT_EQ(sut.path(), "");
    EXPECT_EQ(sut.warning(), "");
    EXPECT_TRUE(entries().empty());
}

TEST_F(RingPlaceTest, WhatADeadHostHasLeftIsTakenByOneHostAndStaysUntilItIsRemoved) {
    leaveRing(settings());
    const RingPlace living(settings());
    auto left = RingPlace::takeLeft(settings());
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].recording, "/site/recording");
    EXPECT_FALSE(left[0].pSource->isLive());
    EXPECT_GT(left[0].pSource->lastNumber(), 0u);
    EXPECT_TRUE(RingPlace::takeLeft(settings()).empty());
    EXPECT_EQ(entries().size(), 8u);
    left[0].remove();
    EXPECT_TRUE(RingPlace::takeLeft(settings()).empty());
    // The directory of the living one, with its file, lock and place.
    EXPECT_EQ(entries().size(), 4u);
    left[0].remove();
    EXPECT_EQ(entries().size(), 4u);
}

TEST_F(RingPlaceTest, WhatAHostThatDiesTooHasNotKeptIsTheNextOnes) {
    leaveRing(settings());
    for (int start = 1; start <= 3; ++start) {
        // Whoever takes it dies, and leaves a ring of its own.
        EXPECT_EQ(RingPlace::takeLeft(settings()).size(), static_cast<std::size_t>(start));
        leaveRing(settings());
    }
    for (auto& left : RingPlace::takeLeft(settings()))
        left.remove();
    EXPECT_TRUE(entries().empty());
}

TEST_F(RingPlaceTest, WhatADeadHostHasLeftBesideTheQueuesIsSetAside) {
    auto beside = settings();
    beside.queueDirectory = parent() + "/queues";
    fs::create_directory(beside.queueDirectory);
    leaveRing(beside);
    auto left = RingPlace::takeLeft(beside);
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].recording, "/site/recording");
    EXPECT_FALSE(fs::exists(beside.queueDirectory + "/stream.ring"));
    // The next host's ring has its place, and the one that dies leaves both.
    leaveRing(beside);
    left.clear();
    left = RingPlace::takeLeft(beside);
    EXPECT_EQ(left.size(), 2u);
    for (auto& each : left)
        each.remove();
    EXPECT_EQ(entries(), std::vector<std::string>{parent() + "/queues"});
}

TEST_F(RingPlaceTest, RingOfALivingHostBesideTheQueuesIsItsOwn) {
    auto beside = settings();
    beside.queueDirectory = parent() + "/queues";
    fs::create_directory(beside.queueDirectory);
    const RingPlace living(beside);
    EXPECT_TRUE(RingPlace::takeLeft(beside).empty());
    EXPECT_TRUE(fs::exists(living.path()));
}

TEST_F(RingPlaceTest, WhatWasLeftGivesWayWhereThereIsRoomForOneAlone) {
    const auto large = settings(std::size_t{20} << 20);
    leaveRing(large);
    auto left = RingPlace::takeLeft(large);
    ASSERT_EQ(left.size(), 1u);
    const RingPlace sut(large, left);
    EXPECT_EQ(sut.warning(), "");
    EXPECT_NE(sut.path(), "");
    EXPECT_EQ(entries().size(), 4u);
    EXPECT_GT(left[0].pSource->lastNumber(), 0u);
}

TEST_F(RingPlaceTest, WhatWasLeftMakesNoRingSmaller) {
    leaveRing(settings(std::nullopt));
    auto left = RingPlace::takeLeft(settings());
    ASSERT_EQ(left.size(), 1u);
    const RingPlace sut(settings(std::nullopt), left);
    ASSERT_NE(sut.ring(), nullptr);
    EXPECT_EQ(sut.ring()->size(stream::ERing::Values) + sut.ring()->size(stream::ERing::Audit),
              std::size_t{16} << 20);
}

TEST_F(RingPlaceTest, DirectoryWithoutARingGoesWhenItsHostIsGone) {
    const std::string empty = parent() + "/mfd-" + std::to_string(::geteuid()) + "-ring-abcdef";
    const std::string others = parent() + "/mfd-" + std::to_string(::geteuid()) + "-abcdef";
    for (const std::string& path : {empty, others})
        fs::create_directory(path);
    base::UniqueFd held(::open(empty.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(::flock(held.get(), LOCK_SH), 0);
    EXPECT_TRUE(RingPlace::takeLeft(settings()).empty());
    EXPECT_TRUE(fs::exists(empty));
    held.reset();
    EXPECT_TRUE(RingPlace::takeLeft(settings()).empty());
    EXPECT_EQ(entries(), std::vector<std::string>{others});
}
