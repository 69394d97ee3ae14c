#include "WireTap.h"

#include <gmock/gmock.h>

#include "RecordedLines.h"
#include "StreamFixture.h"

using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class WireTapTest : public StreamFixture {
protected:
    void make(SecretNames secrets = {}) {
        m_pObservation = std::make_unique<Observation>(*m_pRing, std::move(secrets));
        m_pSut = std::make_unique<WireTap>(*m_pObservation);
    }
    void sent(const std::string& queue, const std::string& message, bool ok = true) {
        m_pSut->sent(queue, reinterpret_cast<const unsigned char*>(message.data()),
                     static_cast<int>(message.size()), ok);
    }
    void received(const std::string& queue, const std::string& message) {
        m_pSut->received(queue, reinterpret_cast<const unsigned char*>(message.data()),
                         static_cast<int>(message.size()));
    }

    std::unique_ptr<stream::StreamRing> m_pRing = ringOf(small());
    std::unique_ptr<Observation> m_pObservation;
    std::unique_ptr<WireTap> m_pSut;
};

}  // namespace

TEST_F(WireTapTest, RecordsTheMessagesOfBothQueuesOfAWatchedDriver) {
    make();
    EXPECT_FALSE(m_pSut->isOn());
    m_pSut->watch("A", WireTap::Clock::now() + 1h);
    EXPECT_TRUE(m_pSut->isOn());
    sent("A_INQ", "SNDFDP\2ON\1\1x\0015"s);
    sent("A_INQ", "DEINIT", false);
    received("A_OUTQ", "SETVAI\1N\5\0\0\0"s);
    received("A_OUTQ", "SETVAI\1N\6\0\0\0"s);
    sent("B_INQ", "DEINIT");
    received("B_OUTQ", "UNSVAL\1N"s);
    sent("OTHER", "DEINIT");
    EXPECT_THAT(recordedLines(*m_pRing),
                ElementsAre("A wire to driver SNDFDP \"ON\" x=\"5\"", "A wire to driver (refused) DEINIT",
                            "A wire from driver SETVAI \"N\" 5", "A wire from driver SETVAI \"N\" 6"));
}

TEST_F(WireTapTest, EndsByItself) {
    make();
    m_pSut->watch("A", WireTap::Clock::now() - 1ms);
    sent("A_INQ", "DEINIT");
    EXPECT_THAT(recordedLines(*m_pRing), IsEmpty());
    EXPECT_FALSE(m_pSut->isOn());
}

TEST_F(WireTapTest, SecretsAreMasked) {
    SecretNames secrets;
    ASSERT_TRUE(secrets.add("A.LOGIN:pin"));
    ASSERT_TRUE(secrets.add("password"));
    make(std::move(secrets));
    m_pSut->watch("A", WireTap::Clock::now() + 1h);
    sent("A_INQ", "SNDFDP\5LOGIN\2\3pin\0041234\4user\4anna"s);
    received("A_OUTQ", "DSPFID\7B.LOGIN\2\3pin\0041234\10password\3abc"s);
    received("A_OUTQ", "SYSCMD\7sendFID\22B.X password=abc y"s);
    received("A_OUTQ", "SETVAL\1N\1x"s);
    EXPECT_THAT(recordedLines(*m_pRing),
                ElementsAre("A wire to driver SNDFDP \"LOGIN\" pin=\"***\" user=\"anna\"",
                            "A wire from driver DSPFID \"B.LOGIN\" pin=\"1234\" password=\"***\"",
                            "A wire from driver SYSCMD \"sendFID\" \"B.X password=***\"",
                            "A wire from driver SETVAL \"N\" \"x\""));
}
