#include <sys/mount.h>

#include <filesystem>
#include <fstream>

#include "RecordedWorkplace.h"

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

/// A host that records where there is no room for it, in memory or on the disk: it says so once, and serves.
class RecordingWithoutRoom : public RecordedWorkplace {
protected:
    void prepare() override {
        RecordedWorkplace::prepare();
        workplace().addModule("Echo");
        workplace().addModule("Talks");
        workplace().configure(entry("E", "direct") + entry("T", "queue", "Talks"));
    }
    HostProcess& startRecording(const std::string& size) {
        return startAndWait({"--record-size", size, "--control", socket(), "--restart-delay", "0.1"});
    }
    ~RecordingWithoutRoom() override {
        if (!m_place.empty())
            ::umount2(m_place.c_str(), MNT_DETACH);
    }
    void mountSmall(const fs::path& place, const std::string& size) {
        fs::create_directories(place);
        ASSERT_EQ(::mount("tmpfs", place.c_str(), "tmpfs", 0, ("size=" + size).c_str()), 0);
        m_place = place;
    }
    static void fill(const fs::path& directory) {
        std::ofstream file(directory / "filler", std::ios::binary);
        const std::string page(4096, 'x');
        while (file.write(page.data(), static_cast<std::streamsize>(page.size())).flush()) {
        }
    }
    /// What the host's stream has by now.
    std::string stream() { return ask("/api/v1/stream?follow=0"); }
    std::string ask(const std::string& path) { return RecordedWorkplace::ask("'" + path + "'").text; }
    /// A text that nothing packs, of several pages.
    static std::string noise(unsigned int seed) {
        std::string text;
        for (unsigned int word = seed; text.size() < 3000; word = word * 1103515245u + 12345u)
            text += "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ+-"[word >> 16 & 63];
        return text;
    }

private:
    std::string m_place;
};

TEST_F(RecordingWithoutRoom, FullMemoryAtTheStartIsOneLineAndTheStreamIsThere) {
    mountSmall("/dev/shm", "4m");
    HostProcess& host = startRecording("8M");
    EXPECT_THAT(host.log(),
                ContainsRegex("the stream is kept in memory without a file: \"/dev/shm/[^\"]*/"
                              "stream[.]ring\": 8200 KiB cannot be had: No space left on device"));
    EXPECT_EQ(count(host.log(), "No space left on device"), 1) << host.log();
    EXPECT_TRUE(rings().empty());
    expectSets(host, "E");
    EXPECT_THAT(stream(), HasSubstr(R"("fid":"E.INT")"));
    EXPECT_EQ(end(), 0);
    EXPECT_FALSE(segments().empty());
}

TEST_F(RecordingWithoutRoom, MemoryThatFillsLaterIsNoSignal) {
    mountSmall("/dev/shm", "16m");
    HostProcess& host = startRecording("4M");
    ASSERT_THAT(rings(), testing::SizeIs(1));
    fill("/dev/shm");
    // Into both rings, more than they take of one sender.
    const std::string text(3500, 'x');
    for (int i = 0; i < 1100; ++i)
        host.type("sendFID E.STRING name=TEXT value=" + std::to_string(i) + text);
    expectSets(host, "E");
    fs::remove("/dev/shm/filler");
    EXPECT_EQ(end(), 0) << host.log();
    EXPECT_TRUE(fs::is_empty("/dev/shm"));
}

TEST_F(RecordingWithoutRoom, FullDiskIsSaidOnceAndTheRecordingGoesOn) {
    mountSmall(recording(), "1m");
    HostProcess& host = startRecording("8M");
    fill(recording());
    for (unsigned int i = 0; i < 20; ++i)
        host.type("sendFID E.STRING name=TEXT value=" + noise(i));
    ASSERT_TRUE(host.waitForLog("the recording has a gap: ")) << host.log();
    EXPECT_THAT(host.log(),
                ContainsRegex("the recording has a gap: \".*/recording/00000001[.]seg\" cannot be "
                              "written: No space left on device"));
    // Nor is there room for a black box.
    host.type("sendFID T.DIE");
    ASSERT_TRUE(host.waitForLog("T: is started again\n")) << host.log();
    expectSets(host, "E");
    EXPECT_EQ(count(host.log(), "the recording has a gap"), 1) << host.log();
    fs::remove(recording() + "/filler");
    host.type("sendFID E.STRING name=TEXT value=after");
    ASSERT_TRUE(host.waitForLog("the recording goes on")) << host.log();
    EXPECT_EQ(end(), 0) << host.log();
    const std::string shown = mfctl("recording show --directory " + recording()).text;
    EXPECT_THAT(shown, HasSubstr("fid E.STRING name=TEXT value=after"));
    EXPECT_THAT(shown, ContainsRegex("gap [0-9]+ records of #[0-9]+ to #[0-9]+"));
}

TEST_F(RecordingWithoutRoom, BlackBoxThatADiskHasNoRoomForIsSaidAndLeavesNothing) {
    mountSmall(recording(), "1m");
    HostProcess& host = startRecording("8M");
    for (unsigned int i = 0; i < 200; ++i)
        host.type("sendFID E.STRING name=TEXT value=" + noise(i));
    expectSets(host, "E");
    fill(recording());
    host.type("sendFID T.DIE");
    ASSERT_TRUE(host.waitForLog("T: is started again\n")) << host.log();
    // At its end it writes the black box that is not due yet.
    EXPECT_EQ(end(), 0) << host.log();
    EXPECT_EQ(count(host.log(), "a black box is not kept: "), 1) << host.log();
    // A long path is cut in a line.
    EXPECT_THAT(host.log(),
                ContainsRegex("a black box is not kept: \".* cannot be written: No space left on device"));
    EXPECT_TRUE(boxes().empty());
    for (const auto& entry : fs::recursive_directory_iterator(recording()))
        EXPECT_THAT(entry.path().string(), Not(HasSubstr(".part")));
}
