#include "ErrorPipeSink.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spdlog/details/log_msg.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

#include "ErrorPipe.h"
#include "StandardErrorCapture.h"
#include "StandardErrorSink.h"
#include "UniqueFd.h"

namespace {

/// The former standard error is to have a certain number; what has it is put back.
class FormerErrors {
public:
    FormerErrors() : m_before(::fcntl(sal::ErrorPipe::s_formerErrors, F_DUPFD_CLOEXEC, 10)) {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        m_reader = ::fcntl(ends[0], F_DUPFD_CLOEXEC, 10);
        const int writer = ::fcntl(ends[1], F_DUPFD_CLOEXEC, 10);
        ::close(ends[0]);
        ::close(ends[1]);
        ::dup2(writer, sal::ErrorPipe::s_formerErrors);
        ::close(writer);
    }
    ~FormerErrors() {
        if (m_before >= 0)
            ::dup2(m_before, sal::ErrorPipe::s_formerErrors);
        else
            ::close(sal::ErrorPipe::s_formerErrors);
        ::close(m_before);
        ::close(m_reader);
    }
    FormerErrors(const FormerErrors&) = delete;
    FormerErrors& operator=(const FormerErrors&) = delete;

    std::string text() const {
        std::array<char, 4096> buffer{};
        ::fcntl(m_reader, F_SETFL, O_NONBLOCK);
        const ssize_t count = ::read(m_reader, buffer.data(), buffer.size());
        return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
    }

private:
    const int m_before;
    int m_reader = -1;
};

/// A pipe as the standard error of this process, which is told of it as a driver process is; what was there
/// comes back. Nothing may be reported meanwhile.
class PipeToHost {
public:
    PipeToHost() {
        ::signal(SIGPIPE, SIG_IGN);
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        m_reader = base::UniqueFd(::fcntl(ends[0], F_DUPFD_CLOEXEC, 10));
        ::dup2(ends[1], STDERR_FILENO);
        ::close(ends[0]);
        ::close(ends[1]);
        const std::string variable = sal::ErrorPipe::variableFor(STDERR_FILENO);
        ::setenv(sal::ErrorPipe::s_variable, variable.substr(variable.find('=') + 1).c_str(), 1);
    }
    ~PipeToHost() {
        ::dup2(m_before.get(), STDERR_FILENO);
        ::signal(SIGPIPE, SIG_DFL);
    }
    PipeToHost(const PipeToHost&) = delete;
    PipeToHost& operator=(const PipeToHost&) = delete;

    void endHost() { m_reader.reset(); }

private:
    const base::UniqueFd m_before{::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 10)};
    base::UniqueFd m_reader;
};

void put(const std::string& text) {
    static_cast<void>(!::write(STDERR_FILENO, text.data(), text.size()));
}

spdlog::sink_ptr former(const std::string& tag) {
    auto pSink = std::make_shared<sal::StandardErrorSink>(false);
    pSink->set_pattern("former " + tag + "%l %n: %v");
    return pSink;
}

void log(sal::ErrorPipeSink& sut, const std::string& output, spdlog::level::level_enum level,
         const std::string& text) {
    sut.log(spdlog::details::log_msg(std::chrono::system_clock::time_point(), spdlog::source_loc{}, output,
                                     level, text));
}

std::string written(const std::string& tag, const std::string& output, spdlog::level::level_enum level) {
    StandardErrorCapture capture;
    sal::ErrorPipeSink sut(tag, former);
    log(sut, output, level, "text");
    return capture.finish();
}

}  // namespace

TEST(ErrorPipeSink, LineGoesAsItWasLogged) {
    EXPECT_EQ(sal::ErrorPipe::encode(2, {}, "AXIS1 MFD", "text"),
              written("AXIS1", "MFD", spdlog::level::err));
    EXPECT_EQ(sal::ErrorPipe::encode(4, {}, "AXIS1", "text"), written("AXIS1", "AXIS1", spdlog::level::info));
    EXPECT_EQ(sal::ErrorPipe::encode(1, {}, "MFD", "text"), written("", "MFD", spdlog::level::critical));
    EXPECT_EQ(sal::ErrorPipe::encode(3, {}, "MFD", "text"), written("", "MFD", spdlog::level::warn));
    EXPECT_EQ(sal::ErrorPipe::encode(5, {}, "MFD", "text"), written("", "MFD", spdlog::level::trace));
}

TEST(ErrorPipeSink, WhenTheHostIsGoneTheLineAndTheNextGoWhereItsOwnErrorsGo) {
    const FormerErrors formerErrors;
    bool isTaken = false;
    {
        PipeToHost host;
        isTaken = sal::ErrorPipe::take();
        host.endHost();
        sal::ErrorPipeSink sut("AXIS1", former);
        log(sut, "MFD", spdlog::level::info, "one");
        log(sut, "MFD", spdlog::level::err, "two");
    }
    EXPECT_TRUE(isTaken);
    EXPECT_EQ("former AXIS1info MFD: one\nformer AXIS1error MFD: two\n", formerErrors.text());
}

TEST(ErrorPipeSink, WhatAHostThatIsGoneHasNotReadComesFirst) {
    const FormerErrors formerErrors;
    {
        PipeToHost host;
        sal::ErrorPipe::take();
        sal::ErrorPipeSink sut("AXIS1", former);
        log(sut, "MFD", spdlog::level::err, "logged");
        put("bare\nhalf");
        log(sut, "AXIS1", spdlog::level::info, "logged, too");
        host.endHost();
        log(sut, "MFD", spdlog::level::info, "last");
    }
    EXPECT_EQ(
        "former error AXIS1 MFD: logged\n"
        "former warning AXIS1: bare\n"
        "former warning AXIS1: half\n"
        "former info AXIS1: logged, too\n"
        "former AXIS1info MFD: last\n",
        formerErrors.text());
}

TEST(ErrorPipeSink, WhatAHostThatIsGoneHasNotReadIsWrittenAtTheEnd) {
    const FormerErrors formerErrors;
    {
        PipeToHost host;
        sal::ErrorPipe::take();
        sal::ErrorPipeSink sut("AXIS1", former);
        log(sut, "MFD", spdlog::level::err, "logged");
        host.endHost();
    }
    EXPECT_EQ("former error AXIS1 MFD: logged\n", formerErrors.text());
}

TEST(ErrorPipeSink, HostThatIsThereIsLeftWhatIsItsOwn) {
    const FormerErrors formerErrors;
    bool isAbandoned = true;
    {
        const PipeToHost host;
        sal::ErrorPipe::take();
        sal::ErrorPipeSink sut("AXIS1", former);
        log(sut, "MFD", spdlog::level::err, "logged");
        isAbandoned = sal::ErrorPipe::isAbandoned();
    }
    EXPECT_FALSE(isAbandoned);
    EXPECT_EQ("", formerErrors.text());
}

TEST(ErrorPipeSink, WhenTheHostIsGoneWhatHasTakenThePlaceOfItsErrorsIsLeftAlone) {
    bool threw = false;
    std::string text;
    {
        PipeToHost host;
        const FormerErrors before;
        sal::ErrorPipe::take();
        host.endHost();
        const FormerErrors other;
        sal::ErrorPipeSink sut("AXIS1", former);
        try {
            log(sut, "MFD", spdlog::level::info, "one");
        } catch (const std::exception&) {
            threw = true;
        }
        text = other.text();
    }
    EXPECT_TRUE(threw);
    EXPECT_EQ("", text);
}

TEST(ErrorPipeSink, ClosedStandardErrorIsAnError) {
    const int saved = ::dup(STDERR_FILENO);
    ::close(STDERR_FILENO);
    bool threw = false;
    try {
        sal::ErrorPipeSink sut("", former);
        log(sut, "MFD", spdlog::level::info, "one");
    } catch (const std::exception&) {
        threw = true;
    }
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    EXPECT_TRUE(threw);
}
