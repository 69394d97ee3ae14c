#include "KeyTable.h"

#include <map>
#include <thread>

#include "StreamFixture.h"

using stream::EKind;
using stream::ERing;
using stream::KeyTable;

namespace {

class KeyTableTest : public StreamFixture {
protected:
    void SetUp() override { m_pRing = ringOf(small()); }
    /// How often each number is defined in the ring as it is now.
    std::map<std::uint32_t, int> definitions() const {
        std::map<std::uint32_t, int> found;
        const stream::StreamSource source(*m_pRing);
        const auto pReader = readerOf(source);
        while (pReader->next({}) == stream::IStreamReader::EResult::Record) {
            if (pReader->record().kind == EKind::Define)
                ++found[pReader->record().key];
        }
        return found;
    }

    std::unique_ptr<stream::StreamRing> m_pRing;
};

}  // namespace

TEST_F(KeyTableTest, NumbersAreGivenOnceAndDefinedInTheStream) {
    KeyTable sut(*m_pRing);
    EXPECT_EQ(sut.driver("AXIS1", at(0)), 1);
    EXPECT_EQ(sut.driver("AXIS2", at(0)), 2);
    EXPECT_EQ(sut.driver("AXIS1", at(0)), 1);
    EXPECT_EQ(sut.key(2, "AXIS2.POSITION", at(0)), 0x20001u);
    EXPECT_EQ(sut.key(2, "AXIS2.SPEED", at(0)), 0x20002u);
    EXPECT_EQ(sut.key(1, "AXIS2.POSITION", at(0)), 0x10001u);
    EXPECT_EQ(sut.key(2, "AXIS2.POSITION", at(0)), 0x20001u);
    EXPECT_EQ(sut.drivers(), 3);
    const stream::StreamSource source(*m_pRing);
    EXPECT_EQ(all(*readerOf(source)), (std::vector<std::string>{"1:AXIS1", "2:AXIS2", "3:AXIS2.POSITION",
                                                                "4:AXIS2.SPEED", "5:AXIS2.POSITION"}));
    EXPECT_EQ(*sut.names().find(0x20002), "AXIS2.SPEED");
}

TEST_F(KeyTableTest, LookingForADriverGivesItNoNumber) {
    KeyTable sut(*m_pRing);
    EXPECT_EQ(sut.known("AXIS1"), 0);
    EXPECT_EQ(sut.driver("AXIS2", at(0)), 1);
    EXPECT_EQ(sut.known("AXIS2"), 1);
    EXPECT_EQ(sut.known("AXIS1"), 0);
}

TEST_F(KeyTableTest, TextsOfTheHostHaveNumbersToo) {
    KeyTable sut(*m_pRing);
    EXPECT_EQ(sut.key(0, "SYSTEM.DRIVERS", at(0)), 1u);
}

TEST_F(KeyTableTest, WhatIsNoKeyHasNoNumber) {
    KeyTable sut(*m_pRing);
    sut.driver("AXIS1", at(0));
    EXPECT_EQ(sut.key(1, "", at(0)), 0x10000u);
    EXPECT_EQ(sut.key(1, std::string(256, 'x'), at(0)), 0x10000u);
    EXPECT_EQ(sut.key(7, "OF.NOBODY", at(0)), 0x70000u);
    EXPECT_FALSE(sut.isFull(1));
}

TEST_F(KeyTableTest, OneDriverTakesNoOthersNumbers) {
    stream::StreamRing::Settings settings = small();
    settings.sizes[1] = std::size_t{1} << 20;
    m_pRing = ringOf(settings);
    KeyTable sut(*m_pRing);
    sut.driver("GREEDY", at(0));
    sut.driver("OTHER", at(0));
    // 1 MiB / 16 / 32 is 2 KiB, which are 32 definitions of 64 bytes.
    for (int i = 0; i < 32; ++i)
        EXPECT_EQ(sut.key(1, "GREEDY.VALUE" + std::to_string(i), at(0)), 0x10001u + i);
    EXPECT_FALSE(sut.isFull(1));
    EXPECT_EQ(sut.key(1, "GREEDY.VALUE32", at(0)), 0x10000u);
    EXPECT_TRUE(sut.isFull(1));
    EXPECT_EQ(sut.key(1, "GREEDY.VALUE7", at(0)), 0x10008u);
    EXPECT_EQ(sut.key(2, "OTHER.VALUE", at(0)), 0x20001u);
}

TEST_F(KeyTableTest, DriversBeyondTheLastNumberShareIt) {
    stream::StreamRing::Settings settings = small();
    settings.sizes[1] = std::size_t{1} << 20;
    m_pRing = ringOf(settings);
    KeyTable sut(*m_pRing);
    for (int i = 1; i < KeyTable::s_lastDriver; ++i)
        EXPECT_EQ(sut.driver("D" + std::to_string(i), at(0)), i);
    EXPECT_EQ(sut.driver("MORE", at(0)), 1023);
    EXPECT_EQ(sut.driver("STILL MORE", at(0)), 1023);
    EXPECT_EQ(sut.names().driver(1023), "others");
    EXPECT_EQ(sut.drivers(), 1024);
}

TEST_F(KeyTableTest, DefinitionsAreAlwaysInTheRing) {
    KeyTable sut(*m_pRing);
    const auto driver = sut.driver("AXIS1", at(0));
    sut.key(driver, "AXIS1.POSITION", at(0));
    for (int i = 0; i < 20'000; ++i) {
        m_pRing->write(at(i), exit("0123456789"));
        sut.sayAgain(at(i));
        if (i % 1000 == 999) {
            EXPECT_EQ(definitions().size(), 2u) << i;
        }
    }
    const auto found = definitions();
    EXPECT_GE(found.at(0x10001), 3);
    EXPECT_LE(found.at(0x10001), 5);
}

TEST_F(KeyTableTest, NothingIsSaidAgainWhileNothingIsWritten) {
    KeyTable sut(*m_pRing);
    sut.driver("AXIS1", at(0));
    for (int i = 0; i < 100; ++i)
        sut.sayAgain(at(i));
    EXPECT_EQ(definitions(), (std::map<std::uint32_t, int>{{0x10000, 1}}));
}

TEST_F(KeyTableTest, ThreadsAgreeOnTheNumbers) {
    KeyTable sut(*m_pRing);
    std::array<std::vector<std::uint32_t>, 4> found;
    std::vector<std::thread> threads;
    for (auto& numbers : found) {
        threads.emplace_back([&] {
            const auto driver = sut.driver("AXIS1", at(0));
            for (int i = 0; i < 50; ++i)
                numbers.push_back(sut.key(driver, "V" + std::to_string(i), at(0)));
        });
    }
    for (auto& thread : threads)
        thread.join();
    for (const auto& numbers : found)
        EXPECT_EQ(numbers, found.front());
}
