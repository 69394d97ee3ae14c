#include "LineStream.h"

#include <gtest/gtest.h>
#include <spdlog/sinks/ostream_sink.h>

#include <iomanip>
#include <sstream>

namespace {

class LineStream : public testing::Test {
protected:
    LineStream() {
        pCore->addChannel(std::make_shared<sal::LogChannel>(
            [this] {
                auto pSink = std::make_shared<spdlog::sinks::ostream_sink_mt>(text);
                pSink->set_pattern("%n %v");
                return pSink;
            },
            [](const std::string&) {}));
    }
    std::string logged() {
        pCore->flush();
        return text.str();
    }

    std::ostringstream text;
    std::shared_ptr<sal::LogCore> pCore = std::make_shared<sal::LogCore>(5);
    sal::LineStream sut{pCore, "MDM", 4};
};

TEST_F(LineStream, HandsALineOverAtItsEnd) {
    sut << "a " << 1;
    EXPECT_EQ(logged(), "");
    sut << std::endl;
    EXPECT_EQ(logged(), "MDM a 1\n");
}

TEST_F(LineStream, EmptyLineIsALine) {
    sut << std::endl;
    EXPECT_EQ(logged(), "MDM \n");
}

TEST_F(LineStream, ManipulatorsEndWithTheLine) {
    sut << std::hex << std::setfill('0') << std::setprecision(2) << std::boolalpha << 255 << std::endl;
    sut << std::setw(3) << 16 << 3.14159 << true << std::endl;
    EXPECT_EQ(logged(), "MDM ff\nMDM  163.141591\n");
}

TEST_F(LineStream, OutlivesItsLog) {
    pCore.reset();
    sut << "nobody hears this" << std::endl;
    EXPECT_TRUE(sut.isOrphan());
}

}  // namespace
