#include "RecordingSearch.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "RemoteFixture.h"
#include "WithoutCapabilities.h"

namespace fs = std::filesystem;

namespace {

/// A host with canned answers, and a machine of directories.
class RecordingSearchTest : public RemoteFixture {
protected:
    RecordingSearchTest() {
        m_settings.sharedMemory = m_machine.path("shm");
        m_settings.current = m_machine.path("work");
        m_settings.services = m_machine.path("services");
        m_settings.proc = m_machine.path("proc");
        fs::create_directories(m_settings.sharedMemory);
        fs::create_directories(m_settings.current);
    }
    RecordingPlace find(const RecordingSearch::Choice& choice = {}) {
        return RecordingSearch(Screen{m_out, m_err}, HostSocket({m_sockets}), m_settings).find(choice);
    }
    void tell(const std::string& recording) {
        m_host.answer("GET ", R"({"instance":"i1","workplace":"","pid":4711,"recording":)" + recording + "}");
    }
    std::string leave(const std::string& directory, int secondsOld) const {
        const std::string name = directory + "/stream.ring";
        m_machine.write(name, "x");
        fs::last_write_time(m_machine.path(name),
                            fs::file_time_type::clock::now() - std::chrono::seconds(secondsOld));
        return m_machine.path(name);
    }
    static std::string own(const std::string& end) {
        return "mfd-" + std::to_string(::geteuid()) + '-' + end;
    }
    /// No host answers.
    void silence() { m_sockets = m_machine.path("nothing"); }
    std::string silent() const { return "no host answers at a mfhost*.sock in " + m_sockets; }

    TemporaryDirectory m_machine;
    RecordingSearch::Settings m_settings;
    std::string m_sockets = m_directory.path();
};

}  // namespace

TEST_F(RecordingSearchTest, HostTellsWhere) {
    tell(R"({"ring":"/run/r","directory":"/var/d"})");
    leave("shm/" + own("abcdef"), 0);
    EXPECT_EQ("/run/r", find().ring);
    EXPECT_EQ("/var/d", find().directory);
    EXPECT_EQ("", err());
}

TEST_F(RecordingSearchTest, PlaceOfAHostInASandboxIsSeenThroughItsProcess) {
    tell(R"({"ring":"/sandboxed/r","directory":"/sandboxed/d"})");
    m_machine.write("proc/4711/root/sandboxed/r", "");
    EXPECT_EQ(m_machine.path("proc/4711/root/sandboxed/r"), find().ring);
    EXPECT_EQ("/sandboxed/d", find().directory);
}

TEST_F(RecordingSearchTest, HostThatRecordsNothingSaysSo) {
    const std::pair refusal(EExit::Failed, "the host at " + m_host.path() +
                                               " records nothing that others can read; --ring or --directory "
                                               "names another recording");
    EXPECT_EQ(refusal, errorOf([&] { find(); }));
    tell("null");
    EXPECT_EQ(refusal, errorOf([&] { find(); }));
}

TEST_F(RecordingSearchTest, WhatIsNamedNeedsNoHost) {
    EXPECT_EQ("r", find({.host = {}, .ring = "r", .directory = {}}).ring);
    EXPECT_EQ("", find({.host = {}, .ring = "r", .directory = {}}).directory);
    EXPECT_EQ("d", find({.host = {}, .ring = {}, .directory = "d"}).directory);
    EXPECT_TRUE(m_host.requests().empty());
}

TEST_F(RecordingSearchTest, WithoutAnAnswerItIsTheNewestThatIsLeft) {
    silence();
    leave("shm/" + own("abcdef"), 50);
    const std::string newest = leave("shm/" + own("ring-ghijkl"), 10);
    leave("shm/" + own("mnopqr"), 20);
    leave("shm/other", 0);
    // In the name of a user whose it is not.
    leave("shm/mfd-" + std::to_string(::geteuid() + 1) + "-stuvwx", 0);
    EXPECT_EQ(newest, find().ring);
    EXPECT_EQ("", find().directory);
    EXPECT_EQ("mfctl: " + silent() + "; reading what is left: " + newest + "\n",
              err().substr(0, err().find('\n') + 1));
    m_settings.queueDirectory = m_machine.path("given");
    const std::string given = leave("given", 5);
    EXPECT_EQ(given, find().ring);
}

TEST_F(RecordingSearchTest, WhatWasSetAsideBesideTheQueuesIsFound) {
    silence();
    m_settings.queueDirectory = m_machine.path("queues");
    const std::string ring = leave("queues/" + own("ring-abcdef"), 0);
    EXPECT_EQ(ring, find().ring);
}

TEST_F(RecordingSearchTest, FileBesideTheRingsNamesTheDirectoryOfTheSegments) {
    silence();
    const std::string ring = leave("shm/" + own("ring-abcdef"), 0);
    fs::create_directories(m_machine.path("segments"));
    m_machine.write("shm/" + own("ring-abcdef") + "/stream.place", m_machine.path("segments") + "\nmore");
    EXPECT_EQ(m_machine.path("segments"), find().directory);
    EXPECT_EQ(ring, find().ring);
    fs::create_directories(m_machine.path("work/recording"));
    fs::remove(m_machine.path("segments"));
    EXPECT_EQ(m_machine.path("work/recording"), find().directory);
}

TEST_F(RecordingSearchTest, HostThatHangsLeavesItsRingToBeRead) {
    m_host.fallSilent();
    const std::string ring = leave("shm/" + own("abcdef"), 0);
    EXPECT_EQ(ring, find().ring);
    EXPECT_THAT(err(), testing::HasSubstr("the host at " + m_host.path() + " does not answer"));
    EXPECT_THAT(err(), testing::HasSubstr("; reading what is left: " + ring + "\n"));
}

TEST_F(RecordingSearchTest, SegmentsAreThoseOfTheWorkingDirectoryOrTheService) {
    silence();
    fs::create_directories(m_machine.path("services/studio/recording"));
    EXPECT_EQ(m_machine.path("services/studio/recording"), find().directory);
    fs::create_directories(m_machine.path("services/stage/recording"));
    EXPECT_EQ(m_machine.path("services/stage/recording"),
              find({.host = "stage", .ring = {}, .directory = {}}).directory);
    EXPECT_EQ(EExit::NoHost, errorOf([&] { find(); }).first);
    fs::create_directories(m_machine.path("work/recording"));
    EXPECT_EQ(m_machine.path("work/recording"), find().directory);
}

TEST_F(RecordingSearchTest, NothingIsNoHost) {
    silence();
    EXPECT_EQ(std::pair(EExit::NoHost, silent() + "; no host has left a recording here either: --ring or "
                                                  "--directory names one"),
              errorOf([&] { find(); }));
}

TEST_F(RecordingSearchTest, SeveralHostsAreWrongUsage) {
    const CannedHost other(m_directory.path("mfhost-2.sock"), "i2");
    leave("shm/" + own("abcdef"), 0);
    EXPECT_EQ(EExit::WrongUsage, errorOf([&] { find(); }).first);
}

TEST_F(RecordingSearchTest, WhatMayNotBeLookedIntoIsNotAllowed) {
    silence();
    leave("shm/" + own("abcdef"), 0);
    const std::string directory = m_machine.path("shm/" + own("abcdef"));
    ASSERT_EQ(0, ::chmod(directory.c_str(), 0));
    std::pair<EExit, std::string> refusal;
    {
        const WithoutCapabilities plain({CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH});
        refusal = errorOf([&] { find(); });
    }
    ::chmod(directory.c_str(), 0700);
    EXPECT_EQ(std::pair(EExit::NotAllowed,
                        "no host answers, and " + directory + " may not be looked into: Permission denied"),
              refusal);
}
