#include "TerminalRelay.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "HangGuard.h"
#include "LineEditor.h"
#include "TemporaryDirectory.h"
#include "Terminal.h"
#include "TerminalModes.h"
#include "TerminalScreen.h"
#include "sal/LogManager.h"

namespace {

/// A process at a terminal whose output goes through a relay.
class RelayedTerminal : public Terminal {
public:
    explicit RelayedTerminal(const std::function<void(TerminalRelay&)>& body)
        : Terminal([&] {
              rememberTerminalModes();
              std::string error;
              const auto pSut = TerminalRelay::make(error);
              if (!pSut)
                  ::_exit(2);
              body(*pSut);
          }) {}
};

bool hasRow(const std::vector<std::string>& rows, const std::string& text) {
    return std::find(rows.begin(), rows.end(), text) != rows.end();
}

}  // namespace

TEST(TerminalRelay, PassesOnWhatAnybodyPrints) {
    // What this process still holds back would come out at the terminal's end.
    std::fflush(nullptr);
    RelayedTerminal terminal([](TerminalRelay&) {
        std::cout << "stream" << std::endl;
        std::printf("print\n");
        std::fflush(stdout);
        std::fprintf(stderr, "error\n");
        if (::fork() == 0) {
            ::execl("/bin/echo", "echo", "child", nullptr);
            ::_exit(1);
        }
        ::wait(nullptr);
    });
    EXPECT_EQ(0, terminal.waitForEnd());
    EXPECT_EQ("stream\r\nprint\r\nerror\r\nchild\r\n", terminal.screen());
}

TEST(TerminalRelay, PrintersStillFindATerminalOfItsSize) {
    Terminal terminal([] {
        const winsize size{24, 132, 0, 0};
        ::ioctl(STDIN_FILENO, TIOCSWINSZ, &size);
        std::string error;
        const auto pSut = TerminalRelay::make(error);
        winsize seen{};
        ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &seen);
        std::printf("(%d %d %d)\n", ::isatty(STDOUT_FILENO), ::isatty(STDERR_FILENO), seen.ws_col);
    });
    EXPECT_EQ(0, terminal.waitForEnd());
    EXPECT_EQ("(1 1 132)\r\n", terminal.screen());
}

TEST(TerminalRelay, LeavesAnErrorStreamThatGoesElsewhereAlone) {
    const TemporaryDirectory directory;
    Terminal terminal([&] {
        const int file = ::open(directory.path("log").c_str(), O_WRONLY | O_CREAT, 0600);
        ::dup2(file, STDERR_FILENO);
        std::string error;
        const auto pSut = TerminalRelay::make(error);
        std::fprintf(stderr, "error\n");
    });
    EXPECT_EQ(0, terminal.waitForEnd());
    EXPECT_EQ("error\n", directory.read("log"));
}

TEST(TerminalRelay, ProcessesThatOutliveThisOneAreGivenTheTerminalItself) {
    RelayedTerminal terminal([](TerminalRelay& sut) {
        sut.hold([] {});
        static_cast<void>(::write(sut.formerErrors(), "past the relay\n", 15));
        std::printf("kept\n");
        sut.release();
    });
    EXPECT_EQ(0, terminal.waitForEnd());
    EXPECT_EQ("past the relay\r\nkept\r\n", terminal.screen());
}

TEST(TerminalRelay, FormerErrorsAreThoseOfTheProcessWhereTheyLeadElsewhere) {
    const TemporaryDirectory directory;
    Terminal terminal([&] {
        ::dup2(::open(directory.path("log").c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
        std::string error;
        const auto pSut = TerminalRelay::make(error);
        std::printf("(%d)\n", pSut->formerErrors());
    });
    EXPECT_EQ(0, terminal.waitForEnd());
    EXPECT_EQ("(-1)\r\n", terminal.screen());
}

TEST(TerminalRelay, KeepsWholeLinesWhileOneIsOnTheScreen) {
    RelayedTerminal terminal([](TerminalRelay& sut) {
        std::printf("before\n");
        std::fflush(stdout);
        std::atomic<int> tellings = 0;
        sut.hold([&] { ++tellings; });
        std::printf("one\ntwo\nthr");
        std::fflush(stdout);
        std::string kept;
        eventually([&] { return (kept += sut.take()) == "one\ntwo\n"; });
        const std::string told = tellings > 0 ? "told" : "not told";
        std::printf("ee\n");
        std::fflush(stdout);
        eventually([&] { return (kept += sut.take()) == "one\ntwo\nthree\n"; });
        sut.release();
        std::printf("(%s %zu)\n", told.c_str(), kept.size());
    });
    EXPECT_EQ(0, terminal.waitForEnd());
    EXPECT_EQ("before\r\n(told 14)\r\n", terminal.screen());
}

TEST(TerminalRelay, LineThatIsNotEndedIsShownAfterAWhile) {
    RelayedTerminal terminal([](TerminalRelay& sut) {
        sut.hold([] {});
        std::printf("begun");
        std::fflush(stdout);
        std::string kept;
        const bool isKept = eventually([&] { return (kept += sut.take()) == "begun\n"; });
        sut.release();
        std::printf("(%d)\n", isKept);
    });
    EXPECT_EQ(0, terminal.waitForEnd());
    EXPECT_EQ("(1)\r\n", terminal.screen());
}

TEST(TerminalRelay, LineOnTheScreenBeginsARowOfItsOwn) {
    RelayedTerminal terminal([](TerminalRelay& sut) {
        std::printf("Loading...");
        std::fflush(stdout);
        sut.hold([] {});
        static_cast<void>(::write(sut.terminal(), "mfhost> ", 8));
        sut.release();
    });
    EXPECT_EQ(0, terminal.waitForEnd());
    EXPECT_EQ("Loading...\r\nmfhost> ", terminal.screen());
}

TEST(TerminalRelay, TellsEachLineToWhoWatches) {
    RelayedTerminal terminal([](TerminalRelay& sut) {
        std::vector<std::string> lines;
        sut.watchLines([&](const std::string& line) { lines.push_back(line); });
        std::printf("on");
        std::fflush(stdout);
        std::printf("e\ntwo\n");
        std::fflush(stdout);
        const bool isSettled = sut.settle(c_hangGuard);
        sut.watchLines(nullptr);
        std::printf("(%d %s %s)\n", isSettled, lines.at(0).c_str(), lines.at(1).c_str());
    });
    EXPECT_EQ(0, terminal.waitForEnd());
    EXPECT_EQ("one\r\ntwo\r\n(1 one two)\r\n", terminal.screen());
}

TEST(TerminalRelay, LastWordsOfAProcessThatCrashesAreShown) {
    for (const int signal : {SIGABRT, SIGSEGV}) {
        RelayedTerminal terminal([signal](TerminalRelay&) {
            const rlimit none{};
            ::setrlimit(RLIMIT_CORE, &none);
            termios modes{};
            ::tcgetattr(STDIN_FILENO, &modes);
            modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
            ::tcsetattr(STDIN_FILENO, TCSANOW, &modes);
            std::fprintf(stderr, "assertion failed\n");
            ::raise(signal);
        });
        EXPECT_EQ(128 + signal, terminal.waitForEnd());
        EXPECT_EQ("assertion failed\r\n", terminal.screen());
        EXPECT_TRUE(terminal.takesLines());
    }
}

TEST(TerminalRelay, TerminalThatTakesNothingHoldsUpNoEnd) {
    RelayedTerminal terminal([](TerminalRelay& sut) {
        // As Ctrl-S does it.
        ::tcflow(STDIN_FILENO, TCOOFF);
        std::printf("%s\n", std::string(1000, 'x').c_str());
        std::fflush(stdout);
        if (sut.settle(std::chrono::milliseconds(100)))
            ::_exit(3);
    });
    EXPECT_EQ(0, terminal.waitForEnd());
}

TEST(TerminalRelay, SaysWhyThereIsNone) {
    Terminal terminal([] {
        const rlimit few{64, 64};
        ::setrlimit(RLIMIT_NOFILE, &few);
        while (::dup(STDIN_FILENO) >= 0) {
        }
        std::string error;
        const bool isMade = TerminalRelay::make(error) != nullptr;
        std::printf("(%d %s)\n", isMade, error.c_str());
        std::fflush(stdout);
    });
    EXPECT_EQ(0, terminal.waitForEnd());
    EXPECT_EQ("(0 no descriptor: Too many open files)\r\n", terminal.screen());
}

TEST(TerminalRelay, NothingComesIntoTheLineThatIsTyped) {
    RelayedTerminal terminal([](TerminalRelay& sut) {
        std::setlocale(LC_CTYPE, "C.UTF-8");
        const sal::LogManager log;
        std::atomic<bool> isOver = false;
        std::thread printer([&] {
            for (int i = 0; !isOver; ++i) {
                std::printf("log line %d\n", i);
                std::fflush(stdout);
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        });
        InputWaiter waiter(STDIN_FILENO);
        LineEditor editor(waiter, {}, {.pRelay = &sut});
        const auto line = editor.read();
        isOver = true;
        printer.join();
        std::printf("[%s]\n", line.value_or("").c_str());
    });
    // More than one row of the screen.
    const std::string typed = "sendFID AXIS1.MOVE " + std::string(80, 'x') + " end";
    ASSERT_TRUE(terminal.shows("mfhost> "));
    for (const char key : typed) {
        ASSERT_TRUE(terminal.type(std::string(1, key)));
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const std::string line = "mfhost> " + typed;
    ASSERT_TRUE(terminal.comesTo([&](const std::string& written) {
        const auto rows = TerminalScreen(80, written).rows();
        return rows.size() > 3 && rows[rows.size() - 2] == line.substr(0, 80) &&
               rows.back() == line.substr(80);
    })) << terminal.screen();
    ASSERT_TRUE(terminal.type("\r"));
    EXPECT_EQ(0, terminal.waitForEnd());
    const auto rows = TerminalScreen(80, terminal.screen()).rows();
    EXPECT_TRUE(hasRow(rows, "log line 0"));
    // Nothing but whole lines above the one that was typed, in their order.
    int next = 0;
    for (const std::string& row : rows) {
        if (row.starts_with("log line"))
            EXPECT_EQ("log line " + std::to_string(next++), row);
        else
            EXPECT_TRUE(row == line.substr(0, 80) || row == line.substr(80) || row.starts_with("[sendFID") ||
                        row.starts_with("xxx"))
                << row;
    }
    EXPECT_GT(next, 3);
}
