#include "LineStreams.h"

#include <gtest/gtest.h>
#include <spdlog/sinks/ostream_sink.h>

#include <sstream>
#include <thread>

namespace {

class LineStreams : public testing::Test {
protected:
    LineStreams() : number(s_lastNumber += 2) {}

    static inline std::uint64_t s_lastNumber = 0;  // an output's number is never used again
    const std::uint64_t number;
    std::shared_ptr<sal::LogCore> pCore = std::make_shared<sal::LogCore>(5);
};

TEST_F(LineStreams, SameOutputAndLevelIsTheSameStream) {
    EXPECT_EQ(&sal::lineStream(number, "MDM", 4, pCore), &sal::lineStream(number, "MDM", 4, pCore));
}

TEST_F(LineStreams, OtherOutputOrLevelIsAnotherStream) {
    const std::ostream* pStream = &sal::lineStream(number, "MDM", 4, pCore);
    EXPECT_NE(&sal::lineStream(number + 1, "MDM", 4, pCore), pStream);
    EXPECT_NE(&sal::lineStream(number, "MDM", 5, pCore), pStream);
}

TEST_F(LineStreams, NowhereFormatsNothing) {
    EXPECT_FALSE(sal::nullStream().good());
}

TEST_F(LineStreams, ThreadLocalObjectThatLogsAfterTheStreamsAreGoneIsNotHeard) {
    struct LastWords {
        ~LastWords() {
            sal::lineStream(ownNumber, "MDM", 4, pOwnCore) << "last words" << std::endl;
            sal::nullStream() << "last words" << std::endl;
        }
        std::uint64_t ownNumber = 0;
        std::shared_ptr<sal::LogCore> pOwnCore;
    };
    std::ostringstream text;
    pCore->addChannel(std::make_shared<sal::LogChannel>(
        [&text] {
            auto pSink = std::make_shared<spdlog::sinks::ostream_sink_mt>(text);
            pSink->set_pattern("%v");
            return pSink;
        },
        [](const std::string&) {}));
    std::thread([this] {
        static thread_local LastWords s_lastWords;
        s_lastWords.ownNumber = number;
        s_lastWords.pOwnCore = pCore;
        sal::lineStream(number, "MDM", 4, pCore) << "first words" << std::endl;
    }).join();
    pCore.reset();
    EXPECT_EQ(text.str(), "first words\n");
}

}  // namespace
