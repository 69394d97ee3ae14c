#include "LineReader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <thread>
#include <vector>

namespace {

using EResult = LineReader::EResult;

class LineReaderTest : public testing::Test {
protected:
    LineReaderTest() : m_isMade(::pipe(m_ends) == 0), m_waiter(m_ends[0]), m_sut(m_ends[0], m_waiter) {
        EXPECT_TRUE(m_isMade);
    }
    ~LineReaderTest() override { ::close(m_ends[0]); }

    void give(const std::string& text) {
        m_writer = std::thread([this, text] {
            EXPECT_EQ(static_cast<ssize_t>(text.size()), ::write(m_ends[1], text.data(), text.size()));
            ::close(m_ends[1]);
        });
    }
    std::vector<std::string> readAll() {
        std::vector<std::string> lines;
        for (std::string line;;) {
            switch (m_sut.read(line)) {
                case EResult::Line:
                    lines.push_back(line);
                    break;
                case EResult::TooLong:
                    lines.push_back("(too long)");
                    break;
                default:
                    m_writer.join();
                    return lines;
            }
        }
    }

    int m_ends[2] = {-1, -1};
    bool m_isMade;
    InputWaiter m_waiter;
    LineReader m_sut;
    std::thread m_writer;
};

using Lines = std::vector<std::string>;

}  // namespace

TEST_F(LineReaderTest, GivesLinesWithoutTheirEnds) {
    give("drivers\n\nquit\n");
    EXPECT_EQ((Lines{"drivers", "", "quit"}), readAll());
}

TEST_F(LineReaderTest, TextBehindTheLastLineEndIsALine) {
    give("drivers\nquit");
    EXPECT_EQ((Lines{"drivers", "quit"}), readAll());
}

TEST_F(LineReaderTest, EmptyInputEndsAtOnce) {
    give("");
    EXPECT_EQ(Lines{}, readAll());
}

TEST_F(LineReaderTest, LineOfSixtyFourKilobytesIsALine) {
    give(std::string(65536, 'x') + "\n");
    EXPECT_EQ(Lines{std::string(65536, 'x')}, readAll());
}

TEST_F(LineReaderTest, LongerLineIsSkipped) {
    give("a\n" + std::string(300000, 'x') + "\nb\n");
    EXPECT_EQ((Lines{"a", "(too long)", "b"}), readAll());
}

TEST_F(LineReaderTest, LongerLineAtTheEndIsSkipped) {
    give("a\n" + std::string(300000, 'x'));
    EXPECT_EQ((Lines{"a", "(too long)"}), readAll());
}

TEST_F(LineReaderTest, StopEndsTheReading) {
    m_waiter.stop();
    std::string line;
    EXPECT_EQ(EResult::Stopped, m_sut.read(line));
    ::close(m_ends[1]);
}

TEST_F(LineReaderTest, EndOfTheInputIsNoError) {
    give("drivers\n");
    readAll();
    EXPECT_EQ(0, m_sut.error());
}

TEST(LineReaderOfWhatCannotBeRead, EndsWithTheSystemsError) {
    const int fd = ::open("/", O_RDONLY | O_DIRECTORY);
    InputWaiter waiter(fd);
    LineReader sut(fd, waiter);
    std::string line;
    EXPECT_EQ(EResult::End, sut.read(line));
    EXPECT_EQ(EISDIR, sut.error());
    ::close(fd);
}
