#include "sal/LogManager.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <future>
#include <memory>
#include <sstream>
#include <thread>
#include <vector>

#include "ChangedUmask.h"
#include "DatagramReceiver.h"
#include "LogCapture.h"
#include "TemporaryDirectory.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

void say(sal::LogManager& log, int level, const std::string& text) {
    log.getLogOutput("MDM")->level(level) << text << std::endl;
}

TEST(LogManager, LineHasTimeLevelOutputAndText) {
    LogCapture log;
    say(log.manager(), 2, "no such file");
    EXPECT_THAT(log.finish(),
                MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} error    MDM: "
                             "no such file\n"));
}

TEST(LogManager, LevelsHaveTheirWords) {
    LogCapture log({.level = 5, .file = {}, .tag = {}});
    for (int level = 1; level <= 5; ++level)
        say(log.manager(), level, std::to_string(level));
    EXPECT_THAT(log.finish(), MatchesRegex(".* critical MDM: 1\n.* error    MDM: 2\n.* warning  MDM: 3\n"
                                           ".* info     MDM: 4\n.* trace    MDM: 5\n"));
}

TEST(LogManager, TagStandsBeforeEachLine) {
    LogCapture log({.level = 4, .file = {}, .tag = "AXIS%1"});
    say(log.manager(), 4, "one");
    say(log.manager(), 4, "two");
    EXPECT_THAT(log.finish(), MatchesRegex(".* info     AXIS%1 MDM: one\n.* info     AXIS%1 MDM: two\n"));
}

TEST(LogManager, TagIsNotRepeatedBeforeAnOutputOfThatName) {
    LogCapture log({.level = 4, .file = {}, .tag = "MDM"});
    say(log.manager(), 4, "one");
    EXPECT_THAT(log.finish(), MatchesRegex(".* info     MDM: one\n"));
}

TEST(LogManager, NothingReachesATerminalAsItIs) {
    const std::string text =
        "\a\x1b[2J\xc2\x9b"
        "2J\x9b";
    const std::string shown = "\\x07\\x1b[2J\\u009b2J\\x9b";
    LogCapture log({.level = 4, .file = "/proc/no/" + text, .tag = "T" + text});
    log.manager().getLogOutput("O" + text)->level(4) << "x" << text << std::endl;
    const std::string logged = log.finish();
    EXPECT_THAT(logged, HasSubstr(" info     T" + shown + " O" + shown + ": x" + shown + "\n"));
    EXPECT_THAT(logged, HasSubstr("/proc/no/" + shown));
    EXPECT_EQ(logged.find_first_of("\a\x1b\xc2\x9b"), std::string::npos) << logged;
}

TEST(LogManager, LevelIsFourUnlessToldOtherwise) {
    LogCapture log;
    EXPECT_EQ(log.manager().level(), 4);
}

TEST(LogManager, LinesAboveTheLevelAreDropped) {
    LogCapture log({.level = 3, .file = {}, .tag = {}});
    say(log.manager(), 4, "unwanted");
    say(log.manager(), 3, "wanted");
    EXPECT_THAT(log.finish(), MatchesRegex("[^\n]*MDM: wanted\n"));
}

TEST(LogManager, LevelCanBeChanged) {
    LogCapture log;
    log.manager().setLevel(5);
    say(log.manager(), 5, "now wanted");
    EXPECT_THAT(log.finish(), HasSubstr("now wanted"));
}

TEST(LogManager, LevelStaysWithinItsScale) {
    LogCapture log({.level = 9, .file = {}, .tag = {}});
    EXPECT_EQ(log.manager().level(), 5);
    log.manager().setLevel(-3);
    EXPECT_EQ(log.manager().level(), 1);
}

TEST(LogManager, SameNameIsTheSameOutput) {
    LogCapture log;
    EXPECT_EQ(log.manager().getLogOutput("MDM"), log.manager().getLogOutput("MDM"));
    EXPECT_NE(log.manager().getLogOutput("MDM"), log.manager().getLogOutput("QUEUE"));
}

TEST(LogManager, FlushWaitsForTheSink) {
    const TemporaryDirectory directory;
    LogCapture log({.level = 4, .file = directory.path("log.txt"), .tag = {}});
    say(log.manager(), 4, "through");
    log.manager().flush();
    EXPECT_THAT(directory.read("log.txt"), HasSubstr("MDM: through\n"));
}

TEST(LogManager, FileGetsTheLinesBesideStandardError) {
    const TemporaryDirectory directory;
    LogCapture log({.level = 4, .file = directory.path("log.txt"), .tag = {}});
    say(log.manager(), 4, "both");
    EXPECT_THAT(log.finish(), HasSubstr("MDM: both\n"));
    EXPECT_THAT(directory.read("log.txt"), HasSubstr("MDM: both\n"));
}

TEST(LogManager, FileIsContinued) {
    const TemporaryDirectory directory;
    directory.write("log.txt", "from before\n");
    LogCapture log({.level = 4, .file = directory.path("log.txt"), .tag = {}});
    say(log.manager(), 4, "new");
    log.finish();
    EXPECT_THAT(directory.read("log.txt"), testing::StartsWith("from before\n"));
}

TEST(LogManager, FullFileIsTurnedOver) {
    const TemporaryDirectory directory;
    LogCapture log({.level = 4, .file = directory.path("log.txt"), .tag = {}});
    const std::string big(50'000, 'x');
    for (int i = 0; i < 220; ++i) {
        say(log.manager(), 4, big);
        log.manager().flush();
    }
    log.finish();
    EXPECT_TRUE(std::filesystem::exists(directory.path("log.1.txt")));
    EXPECT_LE(std::filesystem::file_size(directory.path("log.txt")), 10u << 20);
}

TEST(LogManager, FileThatCannotBeOpenedIsReportedOnce) {
    LogCapture log({.level = 4, .file = "/proc/no/such/directory/log.txt", .tag = {}});
    say(log.manager(), 4, "first");
    say(log.manager(), 4, "second");
    const std::string text = log.finish();
    EXPECT_THAT(text, HasSubstr("LOG: the log goes on without its file: "));
    EXPECT_THAT(text, HasSubstr("/proc/no/such/directory/log.txt"));
    EXPECT_THAT(text, HasSubstr("MDM: first\n"));
    EXPECT_THAT(text, HasSubstr("MDM: second\n"));
    EXPECT_EQ(text.find("goes on without"), text.rfind("goes on without"));
}

TEST(LogManager, NamedPipeAsFileIsRefused) {
    const TemporaryDirectory directory;
    ASSERT_EQ(::mkfifo(directory.path("pipe").c_str(), 0600), 0);
    LogCapture log({.level = 4, .file = directory.path("pipe"), .tag = {}});
    say(log.manager(), 4, "goes on");
    EXPECT_THAT(log.finish(), HasSubstr("is not a regular file"));
}

TEST(LogManager, FileIsNeverMadeForOthersToWrite) {
    const TemporaryDirectory directory;
    const ChangedUmask umask(0);
    LogCapture log({.level = 4, .file = directory.path("logs/log.txt"), .tag = {}});
    say(log.manager(), 4, "text");
    log.finish();
    EXPECT_EQ(std::filesystem::status(directory.path("logs/log.txt")).permissions(),
              std::filesystem::perms(0644));
    EXPECT_EQ(std::filesystem::status(directory.path("logs")).permissions(), std::filesystem::perms(0755));
}

TEST(LogManager, FileIsMadeForItsOwnerWhateverTheUmask) {
    const TemporaryDirectory directory;
    const ChangedUmask umask(0777);
    LogCapture log({.level = 4, .file = directory.path("log.txt"), .tag = {}});
    say(log.manager(), 4, "text");
    log.finish();
    EXPECT_EQ(std::filesystem::status(directory.path("log.txt")).permissions(), std::filesystem::perms(0600));
    EXPECT_THAT(directory.read("log.txt"), HasSubstr("MDM: text\n"));
}

TEST(LogManager, FileThatIsThereKeepsItsMode) {
    const TemporaryDirectory directory;
    directory.write("log.txt", "");
    std::filesystem::permissions(directory.path("log.txt"), std::filesystem::perms(0664));
    LogCapture log({.level = 4, .file = directory.path("log.txt"), .tag = {}});
    say(log.manager(), 4, "text");
    log.finish();
    EXPECT_EQ(std::filesystem::status(directory.path("log.txt")).permissions(), std::filesystem::perms(0664));
}

/// Lets files of this process grow to size bytes only, as a full disk would.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t size) {
        ::getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{size, m_before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { ::setrlimit(RLIMIT_FSIZE, &m_before); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_before{};
};

TEST(LogManager, FullDiskLeavesStandardErrorGoing) {
    const TemporaryDirectory directory;
    LogCapture log({.level = 4, .file = directory.path("log.txt"), .tag = {}});
    say(log.manager(), 4, "fits");
    log.manager().flush();
    {
        const FileSizeLimit full(10);
        say(log.manager(), 4, "does not fit");
        log.manager().flush();
        say(log.manager(), 4, "nor does this");
        log.manager().flush();
    }
    const std::string text = log.finish();
    EXPECT_THAT(text, ContainsRegex("error    LOG: the log goes on without its file: .*File too large"));
    EXPECT_EQ(text.find("goes on without"), text.rfind("goes on without"));
    EXPECT_THAT(text, HasSubstr("MDM: nor does this\n"));
}

TEST(LogManager, FileIsWrittenAgainWhenTheDiskHasRoom) {
    const TemporaryDirectory directory;
    LogCapture log({.level = 4, .file = directory.path("log.txt"), .tag = {}});
    {
        const FileSizeLimit full(10);
        say(log.manager(), 4, "missing");
        log.manager().flush();
    }
    for (int i = 0; i < 100 && directory.read("log.txt").find("MDM: room again") == std::string::npos; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        say(log.manager(), 4, "room again");
        log.manager().flush();
    }
    EXPECT_THAT(directory.read("log.txt"), HasSubstr("MDM: room again"));
    EXPECT_THAT(log.finish(), HasSubstr("LOG: the log file is written again, "));
}

/// Says while it lives that standard error leads to the journal.
class JournalStream {
public:
    JournalStream() {
        struct stat status {};
        ::fstat(STDERR_FILENO, &status);
        ::setenv("JOURNAL_STREAM",
                 (std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino)).c_str(), 1);
    }
    ~JournalStream() { ::unsetenv("JOURNAL_STREAM"); }
    JournalStream(const JournalStream&) = delete;
    JournalStream& operator=(const JournalStream&) = delete;
};

TEST(LogManager, JournalsStreamGetsPriorityInsteadOfTime) {
    StandardErrorCapture capture;
    const JournalStream stream;
    {
        sal::LogManager sut({.level = 5, .file = {}, .tag = "AXIS1", .journal = "/nowhere/journal"});
        for (int level = 1; level <= 5; ++level)
            say(sut, level, std::to_string(level));
    }
    EXPECT_EQ(capture.finish(),
              "<2>AXIS1 MDM: 1\n<3>AXIS1 MDM: 2\n<4>AXIS1 MDM: 3\n<6>AXIS1 MDM: 4\n<7>AXIS1 MDM: 5\n");
}

TEST(LogManager, LineOfAnotherProcessIsWrittenWithItsTime) {
    std::tm local{};
    local.tm_year = 126;
    local.tm_mon = 10;
    local.tm_mday = 2;
    local.tm_isdst = -1;
    LogCapture log({.level = 1, .file = {}, .tag = {}});
    log.manager().write(
        {std::chrono::system_clock::from_time_t(std::mktime(&local)) + std::chrono::milliseconds(7), 3,
         "AXIS1 MFD", "text"});
    EXPECT_EQ(log.finish(), "2026-11-02 00:00:00.007 warning  AXIS1 MFD: text\n");
}

TEST(LogManager, WhereTheHostReadsStandardErrorLinesCanBeReadBack) {
    StandardErrorCapture capture;
    struct stat status {};
    ASSERT_EQ(::fstat(STDERR_FILENO, &status), 0);
    ::setenv("MFD_ERROR_PIPE", (std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino)).c_str(),
             1);
    {
        sal::LogManager sut({.level = 4, .file = {}, .tag = "AXIS1"});
        say(sut, 2, "one\ntwo");
    }
    std::string text = capture.finish();
    ASSERT_THAT(text, testing::EndsWith("\n"));
    text.pop_back();
    const auto [bare, line] = sal::LogManager::readErrorLine(text);
    EXPECT_EQ(bare, "");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->level, 2);
    EXPECT_EQ(line->output, "AXIS1 MDM");
    EXPECT_EQ(line->text, "one\\ntwo");
    EXPECT_LT(std::chrono::system_clock::now() - line->time, std::chrono::hours(1));
    EXPECT_EQ(std::getenv("MFD_ERROR_PIPE"), nullptr);
    const auto [other, none] = sal::LogManager::readErrorLine("2026-11-02 00:00:00.007 warning  MFD: text");
    EXPECT_EQ(other, "2026-11-02 00:00:00.007 warning  MFD: text");
    EXPECT_FALSE(none);
}

TEST(LogManager, JournalGetsDriverAndOutputOfADriverProcess) {
    const TemporaryDirectory directory;
    const DatagramReceiver journal(directory.path("journal"));
    StandardErrorCapture capture;
    const JournalStream stream;
    {
        sal::LogManager sut({.level = 5, .file = {}, .tag = "AXIS1", .journal = journal.path()});
        say(sut, 3, "text");
    }
    EXPECT_EQ(
        journal.receive(),
        "MESSAGE=AXIS1 MDM: text\nPRIORITY=4\nSYSLOG_IDENTIFIER=AXIS1\nMF_OUTPUT=MDM\nMF_DRIVER=AXIS1\n");
    EXPECT_EQ(capture.finish(), "");
}

TEST(LogManager, JournalGetsTheDriverThatAHostsLineIsAbout) {
    const TemporaryDirectory directory;
    const DatagramReceiver journal(directory.path("journal"));
    StandardErrorCapture capture;
    const JournalStream stream;
    {
        sal::LogManager sut({.level = 5,
                             .file = {},
                             .tag = {},
                             .journal = journal.path(),
                             .driverOf = [](const std::string&, const std::string& text) {
                                 return text.substr(0, text.find(':'));
                             }});
        say(sut, 2, "SYS: has ended");
    }
    EXPECT_EQ(journal.receive(), "MESSAGE=MDM: SYS: has ended\nPRIORITY=3\nSYSLOG_IDENTIFIER=" +
                                     std::string(program_invocation_short_name) +
                                     "\nMF_OUTPUT=MDM\nMF_DRIVER=SYS\n");
    EXPECT_EQ(capture.finish(), "");
}

TEST(LogManager, ForeignJournalStreamIsNotBelieved) {
    ::setenv("JOURNAL_STREAM", "1:2", 1);
    LogCapture log;
    say(log.manager(), 2, "text");
    const std::string text = log.finish();
    ::unsetenv("JOURNAL_STREAM");
    EXPECT_THAT(text, Not(testing::StartsWith("<")));
}

TEST(LogManager, NoColourWithoutTerminal) {
    LogCapture log;
    say(log.manager(), 2, "text");
    EXPECT_THAT(log.finish(), Not(HasSubstr("\033")));
}

/// Standard error as a pipe that nobody empties until drain() is called.
class BlockedStandardError {
public:
    BlockedStandardError() {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        m_reader = ends[0];
        m_saved = ::dup(STDERR_FILENO);
        ::dup2(ends[1], STDERR_FILENO);
        ::close(ends[1]);
    }
    ~BlockedStandardError() {
        restore();
        ::close(m_reader);
    }
    BlockedStandardError(const BlockedStandardError&) = delete;
    BlockedStandardError& operator=(const BlockedStandardError&) = delete;

    void restore() {
        if (m_saved >= 0) {
            ::dup2(m_saved, STDERR_FILENO);
            ::close(m_saved);
        }
        m_saved = -1;
    }

    /// What is read until a text occurs or nothing comes any more.
    std::string drainUntil(const std::string& end) const {
        std::string text;
        std::array<char, 65536> buffer{};
        while (text.find(end) == std::string::npos) {
            const ssize_t count = ::read(m_reader, buffer.data(), buffer.size());
            if (count <= 0)
                break;
            text.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return text;
    }

private:
    int m_saved = -1;
    int m_reader = -1;
};

int countLines(const std::string& text, const std::string& part) {
    int count = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        count += line.find(part) != std::string::npos ? 1 : 0;
    return count;
}

TEST(LogManager, BlockedSinkLosesItsOldestLinesAndCountsThem) {
    constexpr int lines = 20'000;
    BlockedStandardError blocked;
    std::string text;
    {
        sal::LogManager sut({.level = 4, .file = {}, .tag = {}});
        for (int i = 1; i <= lines; ++i) {
            say(sut, 4, "line " + std::to_string(i) + ".");
            if (i == 1)
                sut.flush();
        }
        text = blocked.drainUntil("line " + std::to_string(lines) + ".");
    }
    blocked.restore();
    EXPECT_THAT(text, HasSubstr("MDM: line 1.\n"));
    int dropped = 0;
    const std::string notice = " lines dropped here";
    for (auto at = text.find(notice); at != std::string::npos; at = text.find(notice, at + 1))
        dropped += std::stoi(text.substr(text.rfind(' ', at - 1) + 1));
    EXPECT_GT(dropped, 0);
    EXPECT_EQ(countLines(text, "MDM: line "), lines - dropped);
}

TEST(LogManager, BurstIntoAWorkingSinkLosesNothing) {
    constexpr int lines = 50'000;
    LogCapture log;
    for (int i = 0; i < lines; ++i)
        say(log.manager(), 4, "burst");
    log.manager().flush();
    const std::string text = log.finish();
    EXPECT_EQ(countLines(text, "MDM: burst"), lines);
    EXPECT_THAT(text, Not(HasSubstr("dropped")));
}

TEST(LogManager, BlockedSinkDoesNotKeepTheProgramFromEnding) {
    BlockedStandardError blocked;
    {
        sal::LogManager sut({.level = 4, .file = {}, .tag = {}});
        for (int i = 0; i < 5'000; ++i)
            say(sut, 4, "nobody reads this");
        sut.flush();
    }
    blocked.restore();
    SUCCEED();
}

TEST(LogManager, BlockedStandardErrorDoesNotHoldUpTheFile) {
    const TemporaryDirectory directory;
    BlockedStandardError blocked;
    {
        sal::LogManager sut({.level = 4, .file = directory.path("log.txt"), .tag = {}});
        for (int i = 0; i < 5'000; ++i)
            say(sut, 4, "for the file");
        say(sut, 4, "the last one");
    }
    blocked.restore();
    EXPECT_EQ(countLines(directory.read("log.txt"), "MDM: for the file"), 5'000);
    EXPECT_THAT(directory.read("log.txt"), HasSubstr("the last one"));
}

TEST(LogManager, NewManagerTakesOverOnTheSameThread) {
    LogCapture first;
    say(first.manager(), 4, "into the first");
    EXPECT_THAT(first.finish(), HasSubstr("into the first"));
    LogCapture second;
    say(second.manager(), 4, "into the second");
    EXPECT_THAT(second.finish(), MatchesRegex("[^\n]*MDM: into the second\n"));
}

TEST(LogManager, LinesOfManyThreadsStayWhole) {
    constexpr int threads = 4;
    constexpr int lines = 500;
    LogCapture log({.level = 5, .file = {}, .tag = {}});
    std::vector<std::future<void>> running;
    for (int thread = 0; thread < threads; ++thread)
        running.push_back(std::async(std::launch::async, [&] {
            sal::LogOutput* pOutput = log.manager().getLogOutput("MDM");
            for (int i = 0; i < lines; ++i)
                pOutput->level(5) << "begin " << i << " middle " << 0.5 << " end" << std::endl;
        }));
    for (auto& thread : running)
        thread.get();
    std::istringstream text(log.finish());
    int count = 0;
    for (std::string line; std::getline(text, line); ++count)
        ASSERT_THAT(line, ContainsRegex("^[-0-9]+ [0-9:.]+ trace    MDM: begin [0-9]+ middle 0\\.5 end$"));
    EXPECT_EQ(count, threads * lines);
}

}  // namespace
