#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>

#include "RecordedWorkplace.h"
#include "StreamReader.h"
#include "StreamText.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::ContainsRegex;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Lines = std::vector<std::string>;

/// What a host records of a workplace with a driver process, SYS, and a driver in its own process, LOCAL.
class RecordingOfAHost : public RecordedWorkplace {
protected:
    void prepare() override {
        giveAdapter();
        workplace().addModule("Talks");
        workplace().configure(TestWorkplace::entry("SYS", "SysMon", "queue") +
                              TestWorkplace::entry("LOCAL", "SysMon", "direct") +
                              TestWorkplace::entry("T", "Talks", "queue"));
    }
    HostProcess& startAndWait(const std::vector<std::string>& options = {}) {
        HostProcess& host = start(options);
        EXPECT_TRUE(host.waitForLog("HOST: the workplace is started\n")) << host.log();
        EXPECT_TRUE(host.waitForLog("T MFD: Runs ")) << host.log();
        EXPECT_TRUE(host.waitForLog("SYS MFD: Runs ")) << host.log();
        return host;
    }

    static Lines linesOf(stream::IStreamReader& reader) {
        Lines lines;
        for (;;) {
            const auto result = reader.next(std::chrono::steady_clock::now());
            if (result == stream::IStreamReader::EResult::Record)
                lines.push_back(stream::lineOf(reader.record(), reader.names()));
            else if (result != stream::IStreamReader::EResult::Gap)
                return lines;
        }
    }
    /// All that stands in the ring of the host that runs or has died.
    static Lines recorded() {
        const auto files = rings();
        EXPECT_THAT(files, SizeIs(1));
        std::string error;
        const auto pSource = files.empty() ? nullptr : stream::StreamSource::open(files.front(), error);
        EXPECT_NE(pSource, nullptr) << error;
        if (!pSource)
            return {};
        const auto pReader = stream::StreamReader::open(*pSource, stream::StreamCursor::oldest(), error);
        return linesOf(*pReader);
    }
    static bool hasLine(const Lines& lines, const std::string& pattern) {
        return testing::Value(lines, Contains(ContainsRegex(" " + pattern)));
    }
    /// The place of the first such line, from 0; one behind the last where there is none.
    static std::ptrdiff_t placeOf(const Lines& lines, const std::string& pattern) {
        return std::find_if(lines.begin(), lines.end(),
                            [&](const auto& line) { return hasLine({line}, pattern); }) -
               lines.begin();
    }
    /// Whether such a line is recorded by now, or in time.
    static bool records(const std::string& pattern) {
        return eventually([&] { return hasLine(recorded(), pattern); }, std::chrono::milliseconds(50));
    }
    Lines kept() {
        Lines lines;
        for (const std::string& path : segments())
            add(lines, path);
        return lines;
    }
    static void add(Lines& lines, const std::string& path) {
        std::string error;
        const auto pReader = stream::SegmentReader::open(path, error);
        ASSERT_NE(pReader, nullptr) << error;
        const Lines more = linesOf(*pReader);
        lines.insert(lines.end(), more.begin(), more.end());
    }
};

TEST_F(RecordingOfAHost, HasEachKindOfWhatHappens) {
    HostProcess& host = startAndWait();
    EXPECT_TRUE(records("LOCAL start in the host's process$"));
    EXPECT_TRUE(records("SYS start process [0-9]+$"));
    EXPECT_TRUE(records("LOCAL configuration setConfiguration done after "));
    EXPECT_TRUE(records("SYS configuration setConfiguration done after "));
    EXPECT_TRUE(records("HOST: the workplace is started$"));
    EXPECT_TRUE(records("SYS log 4 SYS MFD: Runs "));

    // A value of each type.
    EXPECT_TRUE(records("SYS value SYS[.]LOAD = [0-9.]+$"));
    EXPECT_TRUE(records("LOCAL value LOCAL[.]MEMFREE = [0-9]+$"));
    EXPECT_TRUE(records("LOCAL value LOCAL[.]HOSTNAME = \".+\"$"));
    EXPECT_TRUE(records("SYS value SYS[.]LINK = (true|false)$"));

    // From the console to a process, from there to the host's process, and back.
    host.type("sendFID SYS.FORWARD fid=LOCAL.FORWARD fid=SYS.MARK text=back");
    EXPECT_TRUE(
        records("host command sendFID SYS[.]FORWARD fid=LOCAL.FORWARD fid=SYS.MARK text=back from console$"));
    EXPECT_TRUE(records("host command-end #[0-9]+ done after "));
    EXPECT_TRUE(records("host fid SYS[.]FORWARD fid=LOCAL[.]FORWARD fid=SYS[.]MARK text=back from console"));
    EXPECT_TRUE(records("SYS fid LOCAL[.]FORWARD fid=SYS[.]MARK text=back"));
    EXPECT_TRUE(records("LOCAL fid SYS[.]MARK text=back"));
    EXPECT_TRUE(records("SYS value SYS[.]MARK = \"back\"$"));

    host.type("sendFID SYS.FORWARD fid=NOBODY.MOVE");
    EXPECT_TRUE(records("SYS fid NOBODY[.]MOVE.*: no such driver"));
    host.type("sendFID LOCAL.DANCE");
    EXPECT_TRUE(records("LOCAL fid-end #[0-9]+ unknown function after .*unknown FID \"DANCE\""));
    host.type("triggerEvent LOCAL.DONE value=7");
    EXPECT_TRUE(records("LOCAL event LOCAL[.]DONE"));
    host.type("sendFID T.SAY value=\"out of paper\"");
    EXPECT_TRUE(records("T output out of paper$"));

    host.type("sendFID T.PING value=x");
    EXPECT_TRUE(records("T value T[.]PONG = \"x\"$"));
    // A command comes before what it does.
    const Lines lines = recorded();
    EXPECT_LT(placeOf(lines, "host command sendFID T[.]PING"), placeOf(lines, "host fid T[.]PING"));

    const pid_t driver = host.driverProcess("T");
    ::kill(driver, SIGKILL);
    EXPECT_TRUE(records("T exit signal 9 [(]Killed[)]$"));
    EXPECT_TRUE(records("T restart in [0-9]+ ms$"));
    EXPECT_TRUE(records("T stale [0-9]+ values: signal 9 [(]Killed[)]$"));
    EXPECT_TRUE(records("T start process [0-9]+: again$"));
    EXPECT_TRUE(records("SYS merged [0-9]+ received, [0-9]+ merged, [0-9]+ delivered$"));
    // LOCAL knows no DANCE.
    EXPECT_EQ(end(), 3);
}

TEST_F(RecordingOfAHost, HangIsAVerdict) {
    HostProcess& host = startAndWait({"--hang-timeout", "0.5"});
    const pid_t driver = host.driverProcess("T");
    ::kill(driver, SIGSTOP);
    host.type("sendFID T.PING value=x");
    EXPECT_TRUE(records("T hang hung for "));
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(boxes(), Contains(ContainsRegex("-T-hung-for-.*[.]seg$")));
}

TEST_F(RecordingOfAHost, BlackBoxOfADriverThatDiesHasItsStack) {
    if (std::system("command -v eu-stack >/dev/null") != 0)
        GTEST_SKIP() << "needs the command eu-stack (package elfutils)";
    HostProcess& host = startAndWait();
    const std::string driver = std::to_string(host.driverProcess("T"));
    host.type("sendFID T.DIE");
    EXPECT_TRUE(records("T exit signal 6 [(]Aborted[)]$"));
    EXPECT_EQ(end(), 0);
    ASSERT_THAT(boxes(), SizeIs(1));
    Lines lines;
    add(lines, boxes().front());
    EXPECT_THAT(lines, Contains(HasSubstr("HOST: T: process " + driver + " dies here:")));
    EXPECT_THAT(lines, Contains(ContainsRegex(" #[0-9]+ .* abort")));
}

TEST_F(RecordingOfAHost, EndInOrderLeavesItOnTheDiskAndNothingInMemory) {
    HostProcess& host = startAndWait();
    ASSERT_THAT(rings(), SizeIs(1));
    struct stat info {};
    ASSERT_EQ(::stat(rings().front().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    host.type("sendFID LOCAL.MARK text=kept");
    EXPECT_EQ(end(), 0);
    EXPECT_TRUE(fs::is_empty("/dev/shm"));
    const Lines lines = kept();
    EXPECT_TRUE(hasLine(lines, "host fid LOCAL[.]MARK text=kept from console"));
    EXPECT_TRUE(hasLine(lines, "LOCAL value LOCAL[.]MARK = \"kept\"$"));
    EXPECT_TRUE(hasLine(lines, "SYS exit exit code 0$"));
    EXPECT_TRUE(hasLine(lines, "LOCAL exit unloaded$"));
    EXPECT_TRUE(hasLine(lines, "HOST: all drivers are stopped$"));
    EXPECT_THAT(boxes(), IsEmpty());
}

TEST_F(RecordingOfAHost, DriverThatEndsUnaskedHasABlackBox) {
    HostProcess& host = startAndWait();
    host.type("sendFID T.SAY value=\"out of paper\"");
    EXPECT_TRUE(records("T output out of paper$"));
    ::kill(host.driverProcess("T"), SIGKILL);
    ASSERT_TRUE(host.waitForLog("T: is started again\n")) << host.log();
    EXPECT_EQ(end(), 0);
    ASSERT_THAT(boxes(), SizeIs(1));
    EXPECT_THAT(boxes().front(), ContainsRegex("/[0-9]{8}T[0-9]{6}Z-T-signal-9-Killed[.]seg$"));
    Lines lines;
    add(lines, boxes().front());
    EXPECT_TRUE(hasLine(lines, "T output out of paper$"));
    EXPECT_TRUE(hasLine(lines, "T exit signal 9 [(]Killed[)]$"));
}

TEST_F(RecordingOfAHost, KilledHostLeavesItsLastMinuteForTheNextStart) {
    HostProcess& host = startAndWait();
    host.type("sendFID LOCAL.MARK text=last");
    EXPECT_TRUE(records("LOCAL value LOCAL[.]MARK = \"last\"$"));
    host.signal(SIGKILL);
    EXPECT_EQ(host.waitForEnd(), 128 + SIGKILL);
    // Also without a host.
    EXPECT_TRUE(hasLine(recorded(), "LOCAL value LOCAL[.]MARK = \"last\"$"));
    startAndWait();
    EXPECT_THAT(rings(), SizeIs(1));
    EXPECT_TRUE(eventually([this] { return boxes().size() == 1; }));
    EXPECT_EQ(end(), 0);
    ASSERT_THAT(boxes(), SizeIs(1));
    EXPECT_THAT(boxes().front(), ContainsRegex("-host-killed[.]seg$"));
    Lines lines;
    add(lines, boxes().front());
    EXPECT_TRUE(hasLine(lines, "LOCAL value LOCAL[.]MARK = \"last\"$"));
    EXPECT_TRUE(fs::is_empty("/dev/shm"));
}

TEST_F(RecordingOfAHost, NothingIsKeptWhereItIsNotWanted) {
    HostProcess& host = startAndWait({"--record-off"});
    EXPECT_THAT(rings(), IsEmpty());
    ::kill(host.driverProcess("T"), SIGKILL);
    ASSERT_TRUE(host.waitForLog("T: is started again\n")) << host.log();
    EXPECT_EQ(end(), 0);
    EXPECT_FALSE(fs::exists(workplace().workdir() / "recording"));
}
