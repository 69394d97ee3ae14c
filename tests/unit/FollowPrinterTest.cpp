#include "FollowPrinter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include "HangGuard.h"
#include "LogCapture.h"
#include "TemporaryDirectory.h"

namespace {

class Pipe {
public:
    Pipe() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        m_read = ends[0];
        m_write = ends[1];
    }
    ~Pipe() {
        ::close(m_read);
        closeWriting();
    }
    int readEnd() const { return m_read; }
    int writeEnd() const { return m_write; }
    void closeWriting() {
        if (m_write >= 0)
            ::close(m_write);
        m_write = -1;
    }
    std::string readAll() {
        closeWriting();
        std::string text;
        char chunk[4096];
        for (ssize_t count = 0; (count = ::read(m_read, chunk, sizeof chunk)) > 0;)
            text.append(chunk, static_cast<std::size_t>(count));
        return text;
    }

private:
    int m_read = -1;
    int m_write = -1;
};

/// An output on a disk that is full at first and that gets and loses room as the test says.
class FullOutput {
public:
    FullOutput()
        : m_full(::open("/dev/full", O_WRONLY | O_CLOEXEC)),
          m_file(::open(m_directory.path("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)),
          m_output(::dup(m_full)) {
        if (m_full < 0 || m_file < 0 || m_output < 0)
            throw std::runtime_error("no output");
    }
    ~FullOutput() {
        for (const int fd : {m_full, m_file, m_output})
            ::close(fd);
    }
    int fd() const { return m_output; }
    void empty() const { ::dup2(m_file, m_output); }
    void fill() const { ::dup2(m_full, m_output); }
    std::string text() const { return m_directory.read("out"); }

private:
    const TemporaryDirectory m_directory;
    const int m_full;
    const int m_file;
    const int m_output;
};

std::size_t countOf(const std::string& what, const std::string& text) {
    std::size_t count = 0;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++count;
    return count;
}

StateStore::Entry entry(const std::string& key, StateValue value) {
    StateStore::Entry made;
    made.key = key;
    made.value = std::move(value);
    return made;
}

}  // namespace

TEST(FollowPrinter, PrintsALineForEachChange) {
    Pipe pipe;
    {
        FollowPrinter sut("", pipe.writeEnd(), {}, c_hangGuard);
        sut.valueChanged(entry("SYS.LOAD", StateValue(0.5F)));
        auto stale = entry("SYS.NAME", StateValue(std::string("a\nb")));
        stale.staleCause = "unloaded";
        sut.valueChanged(stale);
        sut.valueUnset("SYS.LOAD");
        sut.eventTriggered({"SYS.HIGH", "7", {}, {}});
        sut.valuesStale("SYS", "exit code 1", {"SYS.A", "SYS.B"});
    }
    EXPECT_EQ(
        "SYS.LOAD = 0.5\n"
        "SYS.NAME = a\\nb  (stale: unloaded)\n"
        "SYS.LOAD unset\n"
        "event SYS.HIGH 7\n"
        "SYS: 2 values stale: exit code 1\n",
        pipe.readAll());
}

TEST(FollowPrinter, NothingThatADriverChoosesReachesATerminalAsItIs) {
    const std::string text =
        "\x1b[2J|\xc2\x9b"
        "2J|\x9b|\n";
    Pipe pipe;
    {
        FollowPrinter sut("", pipe.writeEnd());
        sut.valueChanged(entry("A." + text, StateValue("v" + text)));
        auto stale = entry("A.S", StateValue(1));
        stale.staleCause = "c" + text;
        sut.valueChanged(stale);
        sut.valueUnset("A." + text);
        sut.eventTriggered({"A." + text, "v" + text, {}, {}});
        sut.valuesStale("A" + text, "c" + text, {"A.X"});
    }
    EXPECT_EQ(
        "A.\\x1b[2J|\\u009b2J|\\x9b|\\n = v\\x1b[2J|\\u009b2J|\\x9b|\\n\n"
        "A.S = 1  (stale: c\\x1b[2J|\\u009b2J|\\x9b|\\n)\n"
        "A.\\x1b[2J|\\u009b2J|\\x9b|\\n unset\n"
        "event A.\\x1b[2J|\\u009b2J|\\x9b|\\n v\\x1b[2J|\\u009b2J|\\x9b|\\n\n"
        "A\\x1b[2J|\\u009b2J|\\x9b|\\n: 1 value stale: c\\x1b[2J|\\u009b2J|\\x9b|\\n\n",
        pipe.readAll());
}

TEST(FollowPrinter, PrintsAWaitingValueOfADriverThatHasEndedAsStale) {
    StateStore store;
    Pipe pipe;
    {
        FollowPrinter sut(
            "", pipe.writeEnd(), [&] { store.driverEnded("A", "signal 9"); }, c_hangGuard);
        store.addListener(&sut);
        store.setStateValueInt("A.X", 1);
        EXPECT_TRUE(eventually([&] { return store.find("A.X")->isStale(); }));
        store.removeListener(&sut);
    }
    EXPECT_EQ("A.X = 1  (stale: signal 9)\nA: 1 value stale: signal 9\n", pipe.readAll());
}

TEST(FollowPrinter, PrintsWhatMatchesOnly) {
    Pipe pipe;
    {
        FollowPrinter sut("SYS.L*", pipe.writeEnd(), {}, c_hangGuard);
        sut.valueChanged(entry("SYS.LOAD", StateValue(1)));
        sut.valueChanged(entry("SYS.NAME", StateValue(1)));
        sut.valueUnset("SYS.NAME");
        sut.eventTriggered({"SYS.HIGH", "7", {}, {}});
        sut.valuesStale("SYS", "x", {"SYS.LAST", "SYS.NAME"});
        sut.valuesStale("SYS", "x", {"SYS.NAME"});
    }
    EXPECT_EQ("SYS.LOAD = 1\nSYS: 1 value stale: x\n", pipe.readAll());
}

TEST(FollowPrinter, DropsTheOldestLinesWhileNobodyReads) {
    Pipe pipe;
    auto pSut = std::make_unique<FollowPrinter>("", pipe.writeEnd());
    // More than the pipe and the printer hold together.
    const std::string filler(100, 'x');
    for (int i = 0; i < 20000; ++i)
        pSut->valueChanged(entry("K" + std::to_string(i), StateValue(filler)));
    std::string text;
    char chunk[4096];
    while (text.find("K19999 = " + filler + "\n") == std::string::npos) {
        const ssize_t count = ::read(pipe.readEnd(), chunk, sizeof chunk);
        if (count <= 0)
            break;
        text.append(chunk, static_cast<std::size_t>(count));
    }
    pSut.reset();
    // Which are dropped is a matter of when the printer came to fill the pipe; each is printed or counted.
    int next = 0;
    int dropped = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line); ++next) {
        int count = 0;
        if (std::sscanf(line.c_str(), "... %d lines dropped", &count) == 1) {
            dropped += count;
            next += count;
            ASSERT_TRUE(std::getline(lines, line));
        }
        ASSERT_EQ("K" + std::to_string(next) + " = " + filler, line);
    }
    EXPECT_EQ(20000, next);
    EXPECT_GE(dropped, 20000 - static_cast<int>(FollowPrinter::s_capacity) - 1000);
}

TEST(FollowPrinter, EndsThoughNobodyReads) {
    Pipe pipe;
    {
        FollowPrinter sut("", pipe.writeEnd());
        const std::string filler(1000, 'x');
        for (int i = 0; i < 1000; ++i)
            sut.valueChanged(entry("K", StateValue(filler + std::to_string(i))));
    }
    SUCCEED();
}

TEST(FollowPrinter, SaysOnceThatItLosesLines) {
    LogCapture log;
    const FullOutput output;
    {
        FollowPrinter sut("", output.fd(), {}, c_hangGuard);
        for (int i = 0; i < 100; ++i)
            sut.valueChanged(entry("K", StateValue(std::string(PIPE_BUF, 'x'))));
    }
    EXPECT_EQ(1U, countOf("--follow loses lines: standard output: No space left on device\n", log.text()))
        << log.text();
}

TEST(FollowPrinter, SaysAgainThatItLosesLinesWhenItHadWrittenMeanwhile) {
    const std::string complaint = "--follow loses lines: standard output: No space left on device\n";
    LogCapture log;
    const FullOutput output;
    FollowPrinter sut("", output.fd(), {}, c_hangGuard);
    sut.valueUnset("A");
    ASSERT_TRUE(eventually([&] { return countOf(complaint, log.text()) == 1; })) << log.text();
    output.empty();
    sut.valueUnset("B");
    ASSERT_TRUE(eventually([&] { return output.text() == "B unset\n"; })) << output.text();
    output.fill();
    sut.valueUnset("C");
    EXPECT_TRUE(eventually([&] { return countOf(complaint, log.text()) == 2; })) << log.text();
}
