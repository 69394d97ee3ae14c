#include "mfdqueue.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "GoldenFrame.h"
#include "MfdqueueInC.h"
#include "QueueNames.h"
#include "TemporaryDirectory.h"
#include "sal/MessageQueue.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class MfdqueueInC : public testing::TestWithParam<const char*> {};

TEST_P(MfdqueueInC, MessageIsTheGoldenFrame) {
    std::array<char, MFDQUEUE_MESSAGE> buffer{};
    const int length = messageInC(GetParam(), buffer.data(), buffer.size());
    ASSERT_GT(length, 0) << mfdqueue_error();
    EXPECT_EQ(std::string(buffer.data(), static_cast<std::size_t>(length)), goldenText(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Of, MfdqueueInC,
                         testing::Values("SETVAL", "SETVAF", "SETVAI-negative", "SETVAB", "UNSVAL", "TRIGGR",
                                         "SYSCMD", "DSPFID", "DSPFID-no-parameters"),
                         [](const auto& tested) { return testName(tested.param); });

std::string told(const std::string& message) {
    std::array<char, 4096> text{};
    readInC(message.data(), message.size(), text.data(), text.size());
    return text.data();
}

TEST(Mfdqueue, ReadsTheHostsFrames) {
    EXPECT_EQ(told(goldenText("SETCFG")),
              "SETCFG 3 'AXIS1' 'axis1' '192.0.2.11' 'eth0' '192.0.2.10' '/srv/nvram/AXIS1'");
    EXPECT_EQ(told(goldenText("SETCFG-workplace-min")), "SETCFG -2147483648 'A' 'w' 'i' 'a' 'p' 'n'");
    EXPECT_EQ(told(goldenText("SETCFG-zero-byte")), "SETCFG 1 'A' 'w' 'i' 'a' 'p' 'n'");
    EXPECT_EQ(told(goldenText("SUBSCR")), "SUBSCR 'POSITION'");
    EXPECT_EQ(told(goldenText("SNDFDP")), "SNDFDP 'MOVE' 'to' '12.5' 'speed' '3'");
    EXPECT_EQ(told(goldenText("SNDFDP-no-parameters")), "SNDFDP 'STOP'");
    EXPECT_EQ(told(goldenText("SNDFDP-empty-pair")), "SNDFDP 'M' '' ''");
    EXPECT_EQ(told(goldenText("CRTFID")), "CRTFID");
    EXPECT_EQ(told(goldenText("INTCMP")), "INTCMP");
    EXPECT_EQ(told(goldenText("SHOWST")), "SHOWST");
    EXPECT_EQ(told(goldenText("DEINIT")), "DEINIT");
}

TEST(Mfdqueue, ReadsTheDriversFrames) {
    EXPECT_EQ(told(goldenText("SETVAL")), "SETVAL 'MODE' 'auto'");
    EXPECT_EQ(told(goldenText("SETVAF")), "SETVAF 'TEMP' 21.5");
    EXPECT_EQ(told(goldenText("SETVAI-min")), "SETVAI 'A' -2147483648");
    EXPECT_EQ(told(goldenText("SETVAB-false")), "SETVAB 'DOOR' false");
}

TEST(Mfdqueue, ParameterKeepsItsZeroBytesWithItsLength) {
    const std::string message = goldenText("SNDFDP-zero-byte");
    std::array<mfdqueue_field, MFDQUEUE_FIELDS> fields{};
    std::array<char, MFDQUEUE_MESSAGE> texts{};
    std::array<char, 7> code{};
    ASSERT_EQ(mfdqueue_decode(message.data(), message.size(), code.data(), fields.data(), fields.size(),
                              texts.data()),
              3);
    EXPECT_EQ(std::string(fields[0].text, fields[0].length), "M");
    EXPECT_EQ(std::string(fields[1].text, fields[1].length), std::string("a\0b", 3));
    EXPECT_EQ(std::string(fields[2].text, fields[2].length), std::string("c\0d", 3));
}

/// What a message is once it was taken apart and put together again.
std::string again(const std::string& message) {
    std::array<mfdqueue_field, MFDQUEUE_FIELDS> fields{};
    std::array<char, MFDQUEUE_MESSAGE> texts{};
    std::array<char, MFDQUEUE_MESSAGE> buffer{};
    std::array<char, 7> code{};
    const int count = mfdqueue_decode(message.data(), message.size(), code.data(), fields.data(),
                                      fields.size(), texts.data());
    if (count < 0)
        return mfdqueue_error();
    const int length = mfdqueue_encode(code.data(), fields.data(), static_cast<std::size_t>(count),
                                       buffer.data(), buffer.size());
    return length < 0 ? mfdqueue_error() : std::string(buffer.data(), static_cast<std::size_t>(length));
}

TEST(Mfdqueue, EachFrameIsTheSameWhenItIsTakenApartAndPutTogether) {
    std::size_t frames = 0;
    for (const EFrameWay way : {EFrameWay::eToDriver, EFrameWay::eToHost}) {
        for (const std::string& name : framesToWrite(way)) {
            // A reader ends a text at its zero byte.
            if (name.find("zero-byte") != std::string::npos)
                continue;
            EXPECT_EQ(again(goldenText(name)), goldenText(name)) << name;
            ++frames;
        }
    }
    EXPECT_GE(frames, 50U);
}

TEST(Mfdqueue, RandomMessageIsReadWithinItsRoom) {
    std::mt19937 random(1);
    const std::vector<std::string> codes{"SETCFG", "SUBSCR", "SNDFDP", "SETVAL",
                                         "SETVAF", "SETVAB", "TRIGGR"};
    for (int round = 0; round < 20000; ++round) {
        std::string message = codes[random() % codes.size()];
        message.resize(6 + random() % 1019);
        for (std::size_t index = 6; index < message.size(); ++index)
            message[index] = static_cast<char>(random() % 3 ? random() % 4 : random());
        // Of exactly the size that is asked for, so that a sanitizer sees a byte too many.
        const auto pTexts = std::make_unique<char[]>(MFDQUEUE_MESSAGE + 1);
        pTexts[MFDQUEUE_MESSAGE] = '#';
        std::array<mfdqueue_field, MFDQUEUE_FIELDS> fields{};
        std::array<char, 7> code{};
        const int count = mfdqueue_decode(message.data(), message.size(), code.data(), fields.data(),
                                          fields.size(), pTexts.get());
        ASSERT_GE(count, 1) << mfdqueue_error();
        ASSERT_EQ(pTexts[MFDQUEUE_MESSAGE], '#');
    }
}

std::string refusal(const char* code, const std::vector<mfdqueue_field>& fields, int result) {
    std::array<char, MFDQUEUE_MESSAGE> buffer{};
    EXPECT_EQ(mfdqueue_encode(code, fields.data(), fields.size(), buffer.data(), buffer.size()), result);
    return mfdqueue_error();
}

TEST(Mfdqueue, WrongFieldsAreRefusedWithWhatWouldBeRight) {
    const std::string tooLong(256, 'x');
    EXPECT_EQ(refusal("SETVAX", {}, MFDQUEUE_UNKNOWN), "\"SETVAX\" is no code of a message");
    EXPECT_EQ(refusal("SETVAI", {mfdqueue_text("A")}, MFDQUEUE_MALFORMED), "SETVAI has 2 fields, not 1");
    EXPECT_EQ(refusal("SETVAI", {mfdqueue_text("A"), mfdqueue_text("1")}, MFDQUEUE_MALFORMED),
              "SETVAI: field 2 is an int");
    EXPECT_EQ(refusal("SETVAF", {mfdqueue_text("A"), mfdqueue_int(1)}, MFDQUEUE_MALFORMED),
              "SETVAF: field 2 is a float");
    EXPECT_EQ(refusal("SETVAL", {mfdqueue_text("A"), mfdqueue_text(tooLong.c_str())}, MFDQUEUE_MALFORMED),
              "SETVAL: field 2 has 256 bytes; 255 are the most");
    EXPECT_EQ(refusal("DSPFID", {}, MFDQUEUE_MALFORMED), "DSPFID has 1 or more fields, not 0");
    EXPECT_EQ(refusal("DSPFID", {mfdqueue_text("A.B"), mfdqueue_text("n")}, MFDQUEUE_MALFORMED),
              "DSPFID: each parameter is two texts, a name and a value; the last one has no value");
}

TEST(Mfdqueue, MessageThatDoesNotFitIsRefused) {
    std::array<char, 11> buffer{};
    const std::vector<mfdqueue_field> fields{mfdqueue_text("A"), mfdqueue_int(1)};
    EXPECT_EQ(mfdqueue_encode("SETVAI", fields.data(), fields.size(), buffer.data(), buffer.size()),
              MFDQUEUE_MALFORMED);
    EXPECT_STREQ(mfdqueue_error(), "SETVAI: the message does not fit into 11 bytes");
}

TEST(Mfdqueue, UnknownMessageIsToldFromAMalformedOne) {
    std::array<mfdqueue_field, 2> fields{};
    std::array<char, MFDQUEUE_MESSAGE> texts{};
    std::array<char, 7> code{};
    EXPECT_EQ(mfdqueue_decode("WAKEUP", 6, code.data(), fields.data(), fields.size(), texts.data()),
              MFDQUEUE_UNKNOWN);
    EXPECT_STREQ(code.data(), "WAKEUP");
    EXPECT_EQ(mfdqueue_decode("", 0, code.data(), fields.data(), fields.size(), texts.data()),
              MFDQUEUE_UNKNOWN);
    const std::string message = goldenText("SNDFDP");
    EXPECT_EQ(mfdqueue_decode(message.data(), message.size(), code.data(), fields.data(), fields.size(),
                              texts.data()),
              MFDQUEUE_MALFORMED);
    EXPECT_STREQ(mfdqueue_error(), "SNDFDP has more than 2 fields");
}

TEST(Mfdqueue, ShowsItsOperationsAlone) {
    void* const pLibrary = ::dlopen(MFD_QUEUE_FILE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(pLibrary, nullptr) << ::dlerror();
    for (const char* name :
         {"mfdqueue_open", "mfdqueue_receive", "mfdqueue_send", "mfdqueue_driver_id", "mfdqueue_close",
          "mfdqueue_error", "mfdqueue_log", "mfdqueue_encode", "mfdqueue_decode"})
        EXPECT_NE(::dlvsym(pLibrary, name, "MFDQUEUE_0"), nullptr) << name;
    ::dlclose(pLibrary);
}

/// The queues as a host makes them, in a directory of their own. A process is one driver: all tests name the
/// same one.
class Mfdqueues : public testing::Test {
protected:
    Mfdqueues() {
        ::setenv("MFD_QUEUE_DIR", m_directory.path().c_str(), 1);
        ::chmod(m_directory.path().c_str(), 0700);
    }
    void makeQueues() {
        m_pInput = std::make_unique<sal::MessageQueue>();
        m_pOutput = std::make_unique<sal::MessageQueue>();
        ASSERT_TRUE(m_pInput->create(protocol::inputQueue("AXIS1"), 256, 1024, 0));
        ASSERT_TRUE(m_pOutput->create(protocol::outputQueue("AXIS1"), 4, 1024, 0));
    }
    std::string directory() const { return m_directory.path(); }
    void closeQueues() {
        m_pInput.reset();
        m_pOutput.reset();
    }
    bool send(const std::string& message) {
        return m_pInput->send(reinterpret_cast<const unsigned char*>(message.data()),
                              static_cast<int>(message.size()), -1);
    }
    std::string received() {
        std::array<unsigned char, MFDQUEUE_MESSAGE> buffer{};
        const int length = m_pOutput->receive(buffer.data(), buffer.size(), 60000);
        return length < 0 ? "nothing"
                          : std::string(buffer.begin(), buffer.begin() + static_cast<std::size_t>(length));
    }
    static int next(mfdqueue* pQueue, int milliseconds, std::string& message) {
        std::array<char, MFDQUEUE_MESSAGE> buffer{};
        const int length = mfdqueue_receive(pQueue, buffer.data(), buffer.size(), milliseconds);
        message.assign(buffer.data(), static_cast<std::size_t>(std::max(length, 0)));
        return length;
    }

private:
    TemporaryDirectory m_directory;
    std::unique_ptr<sal::MessageQueue> m_pInput;
    std::unique_ptr<sal::MessageQueue> m_pOutput;
};

TEST_F(Mfdqueues, MessagesPassBothWays) {
    makeQueues();
    mfdqueue* const sut = mfdqueue_open("AXIS1");
    ASSERT_NE(sut, nullptr) << mfdqueue_error();
    EXPECT_STREQ(mfdqueue_driver_id(sut), "AXIS1");
    std::string message;
    EXPECT_EQ(next(sut, 0, message), MFDQUEUE_NOTHING);
    EXPECT_EQ(next(sut, 20, message), MFDQUEUE_NOTHING);
    ASSERT_TRUE(send("SNDFDP\4STOP"));
    EXPECT_EQ(next(sut, 60000, message), 11);
    EXPECT_EQ(message, "SNDFDP\4STOP");
    EXPECT_EQ(mfdqueue_send(sut, "UNSVAL\1A", 8, 60000), MFDQUEUE_DONE);
    EXPECT_EQ(received(), "UNSVAL\1A");
    mfdqueue_close(sut);
}

TEST_F(Mfdqueues, WhatTheHostHadSentComesBeforeItsEnd) {
    makeQueues();
    mfdqueue* const sut = mfdqueue_open("AXIS1");
    ASSERT_NE(sut, nullptr) << mfdqueue_error();
    ASSERT_TRUE(send("INTCMP"));
    closeQueues();
    std::string message;
    EXPECT_EQ(next(sut, -1, message), 6);
    EXPECT_EQ(message, "INTCMP");
    EXPECT_EQ(next(sut, -1, message), MFDQUEUE_ENDED);
    EXPECT_STREQ(mfdqueue_error(), "the host has let go of the queues");
    EXPECT_EQ(next(sut, 60000, message), MFDQUEUE_ENDED);
    mfdqueue_close(sut);
}

TEST_F(Mfdqueues, ReceiverThatWaitsLearnsOfTheHostsEnd) {
    makeQueues();
    mfdqueue* const sut = mfdqueue_open("AXIS1");
    ASSERT_NE(sut, nullptr) << mfdqueue_error();
    std::thread host([this] { closeQueues(); });
    std::string message;
    EXPECT_EQ(next(sut, -1, message), MFDQUEUE_ENDED);
    host.join();
    mfdqueue_close(sut);
}

TEST_F(Mfdqueues, FullQueueRefusesInTime) {
    makeQueues();
    mfdqueue* const sut = mfdqueue_open("AXIS1");
    ASSERT_NE(sut, nullptr) << mfdqueue_error();
    for (int count = 0; count < 4; ++count)
        EXPECT_EQ(mfdqueue_send(sut, "UNSVAL\1A", 8, 0), MFDQUEUE_DONE);
    EXPECT_EQ(mfdqueue_send(sut, "UNSVAL\1B", 8, 10), MFDQUEUE_REFUSED);
    EXPECT_STREQ(mfdqueue_error(), "the host takes no message: its queue is full, or it is gone");
    EXPECT_EQ(mfdqueue_send(sut, "", 0, 0), MFDQUEUE_MALFORMED);
    mfdqueue_close(sut);
}

TEST_F(Mfdqueues, DamagedQueueIsToldFromAnEmptyOne) {
    makeQueues();
    mfdqueue* const sut = mfdqueue_open("AXIS1");
    ASSERT_NE(sut, nullptr) << mfdqueue_error();
    ASSERT_EQ(::truncate((directory() + "/AXIS1_INQ").c_str(), 0), 0);
    std::string message;
    EXPECT_EQ(next(sut, 10, message), MFDQUEUE_BROKEN);
    EXPECT_STREQ(mfdqueue_error(), "the input queue is broken");
    mfdqueue_close(sut);
}

TEST_F(Mfdqueues, WithoutAHostThereIsNothingToOpen) {
    EXPECT_EQ(mfdqueue_open("AXIS1"), nullptr);
    EXPECT_THAT(mfdqueue_error(), HasSubstr("queue AXIS1_INQ: "));
    EXPECT_EQ(mfdqueue_open(""), nullptr);
    EXPECT_STREQ(mfdqueue_error(), "a driver ID is not empty");
    EXPECT_EQ(mfdqueue_open(nullptr), nullptr);
}

TEST_F(Mfdqueues, ProcessIsOneDriverAndMayOpenAfterAReload) {
    makeQueues();
    mfdqueue* sut = mfdqueue_open("AXIS1");
    ASSERT_NE(sut, nullptr) << mfdqueue_error();
    EXPECT_EQ(mfdqueue_open("AXIS1"), nullptr);
    EXPECT_STREQ(mfdqueue_error(), "the process holds the queues of AXIS1 already");
    mfdqueue_close(sut);
    closeQueues();
    EXPECT_EQ(mfdqueue_open("AXIS2"), nullptr);
    EXPECT_STREQ(mfdqueue_error(), "the process is the driver AXIS1 and cannot become another one");
    makeQueues();
    sut = mfdqueue_open("AXIS1");
    ASSERT_NE(sut, nullptr) << mfdqueue_error();
    ASSERT_TRUE(send("INTCMP"));
    std::string message;
    EXPECT_EQ(next(sut, 60000, message), 6);
    mfdqueue_close(sut);
    mfdqueue_close(nullptr);
}

TEST_F(Mfdqueues, LogNamesTheDriver) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [this] {
        mfdqueue_log(4, "too early");
        mfdqueue_log(3, "early");
        makeQueues();
        mfdqueue_close(mfdqueue_open("AXIS1"));
        mfdqueue_log(2, "stuck");
        std::exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0),
                "^MFD: early\n[-0-9]+ [:.0-9]+ error    AXIS1 MFD: stuck\n$");
}

}  // namespace
