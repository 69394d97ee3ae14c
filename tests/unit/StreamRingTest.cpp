#include "StreamRing.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "ForkedProcess.h"
#include "PrivateMachine.h"
#include "Rounds.h"
#include "StreamFixture.h"

using stream::EKind;
using stream::ERing;
using stream::StreamRing;
using stream::StreamSource;

namespace {

class StreamRingTest : public StreamFixture {
protected:
    std::string refusal(const StreamRing::Settings& settings) const {
        std::string error;
        EXPECT_EQ(StreamRing::create(settings, at(0), error), nullptr);
        return error;
    }
    /// The share of driver 1.
    static void useUp(StreamRing& ring) {
        int count = 0;
        while (count < 10'000 && ring.write(at(0), event("0123456789")) != 0)
            ++count;
        EXPECT_LT(count, 10'000);
    }
    std::string path() const { return m_directory.path("ring"); }
    /// KiB of the ring that this process has in its memory.
    static std::size_t readyOf(const StreamRing& ring) {
        std::ostringstream begin;
        begin << std::hex << reinterpret_cast<std::uintptr_t>(ring.base()) << '-';
        std::ifstream maps("/proc/self/smaps");
        std::string line;
        while (std::getline(maps, line) && !line.starts_with(begin.str())) {
        }
        while (std::getline(maps, line)) {
            if (line.starts_with("Rss:"))
                return std::stoul(line.substr(4));
        }
        ADD_FAILURE() << "the ring is not in /proc/self/smaps";
        return 0;
    }

    TemporaryDirectory m_directory;
};

}  // namespace

TEST_F(StreamRingTest, NumbersCountBothRings) {
    const auto pSut = ringOf(small());
    EXPECT_EQ(pSut->write(at(1), value(5)), 1u);
    EXPECT_EQ(pSut->write(at(2), exit("x")), 2u);
    EXPECT_EQ(pSut->write(at(3), value(6)), 3u);
    EXPECT_EQ(pSut->lastNumber(), 3u);
    EXPECT_EQ(pSut->head(ERing::Values), s_small + 64);
    EXPECT_EQ(pSut->head(ERing::Audit), s_small + 64);
}

TEST_F(StreamRingTest, IsMadeReadyMegabyteByMegabyte) {
    StreamRing::Settings settings = small();
    settings.sizes = {std::size_t{1} << 20, std::size_t{1} << 20};
    const auto pSut = ringOf(settings);
    EXPECT_LT(readyOf(*pSut), 100u);
    EXPECT_FALSE(pSut->makeReady());
    EXPECT_GE(readyOf(*pSut), 1024u);
    EXPECT_LT(readyOf(*pSut), 1200u);
    EXPECT_FALSE(pSut->makeReady());
    EXPECT_TRUE(pSut->makeReady());
    EXPECT_EQ(readyOf(*pSut), pSut->fileSize() / 1024);
    EXPECT_TRUE(pSut->makeReady());
}

TEST_F(StreamRingTest, CountsByDriverAndKind) {
    const auto pSut = ringOf(small());
    pSut->write(at(1), value(5));
    pSut->write(at(1), value(6));
    pSut->write(at(1), event("x", 2));
    EXPECT_EQ(pSut->count(1, EKind::Int), 2u);
    EXPECT_EQ(pSut->count(1, EKind::Event), 0u);
    EXPECT_EQ(pSut->count(2, EKind::Event), 1u);
}

TEST_F(StreamRingTest, FileIsItsOwnersAloneAndHoldsAll) {
    const auto pSut = ringOf(small(path()));
    struct stat status {};
    ASSERT_EQ(::stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    EXPECT_EQ(static_cast<std::size_t>(status.st_size), 2 * s_small + 2 * 4096);
    EXPECT_GE(static_cast<std::size_t>(status.st_blocks) * 512, 2 * s_small);
    EXPECT_FALSE(m_directory.contains("ring.part"));
}

TEST_F(StreamRingTest, SecondWriterOfAFileIsRefused) {
    const auto pSut = ringOf(small(path()));
    pSut->write(at(1), exit("x"));
    EXPECT_EQ(refusal(small(path())), '"' + path() + "\" is written by another process");
    // The first one's file is still in its place.
    std::string error;
    const auto pSource = StreamSource::open(path(), error);
    ASSERT_NE(pSource, nullptr) << error;
    EXPECT_TRUE(pSource->isLive());
    EXPECT_EQ(all(*readerOf(*pSource)), (std::vector<std::string>{"1:x"}));
}

TEST_F(StreamRingTest, SuccessorTakesTheNameAndLeavesTheOldFileToItsReaders) {
    ringOf(small(path()))->write(at(1), exit("old"));
    std::string error;
    const auto pOld = StreamSource::open(path(), error);
    ASSERT_NE(pOld, nullptr) << error;
    EXPECT_FALSE(pOld->isLive());
    const auto pSut = ringOf(small(path()));
    pSut->write(at(1), exit("new"));
    EXPECT_EQ(all(*readerOf(*pOld)), (std::vector<std::string>{"1:old"}));
    const auto pNew = StreamSource::open(path(), error);
    ASSERT_NE(pNew, nullptr) << error;
    EXPECT_EQ(all(*readerOf(*pNew)), (std::vector<std::string>{"1:new"}));
}

TEST_F(StreamRingTest, SizesAndInstanceThatCannotBeAreRefused) {
    StreamRing::Settings settings = small();
    settings.sizes[1] = 65536 + 32;
    EXPECT_EQ(refusal(settings),
              "a ring cannot have 65568 bytes: it takes a multiple of 4096, from 65536 on");
    settings.sizes[1] = 4096;
    EXPECT_EQ(refusal(settings), "a ring cannot have 4096 bytes: it takes a multiple of 4096, from 65536 on");
    settings = small();
    settings.instance = "a:b";
    EXPECT_EQ(refusal(settings),
              "an instance cannot be called \"a:b\": it takes 1 to 32 letters, digits and \"-\"");
    settings.instance.clear();
    EXPECT_EQ(refusal(settings),
              "an instance cannot be called \"\": it takes 1 to 32 letters, digits and \"-\"");
}

TEST_F(StreamRingTest, DirectoryThatIsNotThereIsNamed) {
    EXPECT_EQ(refusal(small("/nowhere/ring")),
              "\"/nowhere/ring.lock\" cannot be opened: No such file or directory");
}

TEST_F(StreamRingTest, ShortMemoryIsAnErrorAtTheStartAndLeavesNothing) {
    const std::string place = m_directory.path("small");
    std::filesystem::create_directory(place);
    ForkedProcess child([&](const ForkedProcess::Side& side) {
        if (const std::string missing = PrivateMachine::enterWithSmall(place, "100k"); !missing.empty()) {
            side.tell("skip " + missing);
            return;
        }
        std::string error;
        const auto pSut = StreamRing::create(small(place + "/ring"), at(0), error);
        side.tell(pSut ? "made" : error);
        side.tell(std::filesystem::exists(place + "/ring.part") || std::filesystem::exists(place + "/ring")
                      ? "left"
                      : "clean");
    });
    const std::string first = child.hear();
    if (first.rfind("skip ", 0) == 0)
        GTEST_SKIP() << first.substr(5);
    EXPECT_EQ(first,
              '"' + place +
                  "/ring\": 136 KiB cannot be had: No space left on device; the file system needs so much "
                  "memory, or the rings must be smaller");
    EXPECT_EQ(child.hear(), "clean");
}

TEST_F(StreamRingTest, FileSystemThatIsFullLaterIsNoSignal) {
    const std::string place = m_directory.path("small");
    std::filesystem::create_directory(place);
    ForkedProcess child([&](const ForkedProcess::Side& side) {
        if (const std::string missing = PrivateMachine::enterWithSmall(place, "200k"); !missing.empty()) {
            side.tell("skip " + missing);
            return;
        }
        std::string error;
        const auto pSut = StreamRing::create(small(place + "/ring"), at(0), error);
        if (!pSut) {
            side.tell(error);
            return;
        }
        const int filler = ::open((place + "/filler").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        const std::string page(4096, 'x');
        while (::write(filler, page.data(), page.size()) > 0) {
        }
        for (int i = 0; i < 10'000; ++i) {
            pSut->write(at(i), value(i));
            pSut->write(at(i), exit("0123456789012345678901234567890123456789"));
        }
        side.tell("written " + std::to_string(pSut->lastNumber()));
    });
    const std::string said = child.hear();
    if (said.rfind("skip ", 0) == 0)
        GTEST_SKIP() << said.substr(5);
    EXPECT_EQ(said, "written 20000");
}

TEST_F(StreamRingTest, WhoIsSpentIsRefusedWhateverItIs) {
    const auto pSut = ringOf(small());
    EXPECT_FALSE(pSut->isSpent(1, at(0)));
    int written = 0;
    while (pSut->write(at(written), event("", 1)) != 0) {
        ++written;
        ASSERT_LT(written, 10'000);
    }
    EXPECT_GT(written, 100);
    EXPECT_TRUE(pSut->isSpent(1, at(written)));
    EXPECT_FALSE(pSut->isSpent(2, at(written)));
    pSut->addRefused(1, 5);
    EXPECT_EQ(pSut->refused(1), 6u);
    // What it would push out is older than a minute by then.
    EXPECT_FALSE(pSut->isSpent(1, at(70'000'000)));
    EXPECT_NE(pSut->write(at(70'000'000), event("", 1)), 0u);
}

TEST_F(StreamRingTest, DriverHasAQuarterOfALapAndTheRestIsCounted) {
    const auto pSut = ringOf(small());
    unsigned int recorded = 0;
    for (int i = 0; i < 10'000; ++i)
        recorded += pSut->write(at(i), event("0123456789", 1)) != 0;
    EXPECT_GT(recorded * 64, s_small / 8);
    EXPECT_LE(recorded * 64, s_small / 4);
    EXPECT_EQ(pSut->refused(1), 10'000 - recorded);
    EXPECT_EQ(pSut->count(1, EKind::Event), recorded);
}

TEST_F(StreamRingTest, NoLapHoldsMoreThanAQuarterOfOneDriver) {
    const auto pSut = ringOf(small());
    std::vector<std::pair<std::uint64_t, bool>> places;
    for (int i = 0; i < 20'000; ++i) {
        const std::uint64_t head = pSut->head(ERing::Audit);
        if (i % 5 == 0)
            pSut->write(at(i), exit("0123456789"));
        else if (pSut->write(at(i), event("0123456789", 2)) == 0)
            continue;
        places.emplace_back(head, i % 5 != 0);
    }
    ASSERT_GT(pSut->head(ERing::Audit), 4 * s_small);
    std::size_t first = 0;
    std::size_t ofDriver = 0;
    for (const auto& [position, isDrivers] : places) {
        ofDriver += isDrivers ? 64 : 0;
        while (places[first].first + s_small < position + 64) {
            ofDriver -= places[first].second ? 64 : 0;
            ++first;
        }
        ASSERT_LE(ofDriver, s_small / 4) << position;
    }
}

TEST_F(StreamRingTest, FloodsDoNotPushOutWhatIsRare) {
    const auto pSut = ringOf(small());
    pSut->write(at(0), event("rare", 9));
    pSut->write(at(0), exit("end"));
    for (int i = 0; i < 30'000; ++i)
        pSut->write(at(i), event("0123456789", static_cast<std::uint16_t>(1 + i % 3)));
    const StreamSource source(*pSut);
    const auto found = all(*readerOf(source));
    ASSERT_GE(found.size(), 2u);
    EXPECT_EQ(found[0], "1:rare");
    EXPECT_EQ(found[1], "2:end");
}

TEST_F(StreamRingTest, ShareIsNotExhaustedByTheRareKinds) {
    const auto pSut = ringOf(small());
    useUp(*pSut);
    EXPECT_NE(pSut->write(at(0), exit("end")), 0u);
}

TEST_F(StreamRingTest, WhatIsOldMayBePushedOutByAnyone) {
    const auto pSut = ringOf(small());
    useUp(*pSut);
    const std::int64_t minute = 60'000'000;
    EXPECT_EQ(pSut->write(at(minute - 1), event("0123456789")), 0u);
    // A minute after the start all of the ring is old, but for what is written from now on.
    unsigned int recorded = 0;
    while (recorded < 10'000 && pSut->write(at(minute), event("0123456789")) != 0)
        ++recorded;
    EXPECT_GT(recorded * 64, s_small / 2);
    EXPECT_LE(recorded * 64, s_small + s_small / 4);
}

TEST_F(StreamRingTest, ValuesHaveNoShare) {
    const auto pSut = ringOf(small());
    for (int i = 0; i < 10'000; ++i)
        EXPECT_NE(pSut->write(at(i), value(i)), 0u);
    EXPECT_EQ(pSut->refused(1), 0u);
}

TEST_F(StreamRingTest, RecordsCrossTheEndOfTheRing) {
    const auto pSut = ringOf(small());
    const std::string text(1000, 't');
    for (int i = 0; i < 200; ++i)
        pSut->write(at(i), exit(text + std::to_string(i)));
    const StreamSource source(*pSut);
    const auto found = all(*readerOf(source));
    ASSERT_GT(found.size(), 50u);
    EXPECT_EQ(found.back(), "200:" + text + "199");
    for (std::size_t i = 1; i < found.size(); ++i)
        EXPECT_EQ(found[i].substr(0, 3), std::to_string(200 - (found.size() - 1 - i)).substr(0, 3))
            << found[i];
}

// Several threads write as fast as they can, twenty readers look: each record that a reader gets is one that
// was written, each number once and in order, and together with what it is told to have missed none is
// lacking.
TEST_F(StreamRingTest, ManyWritersAndTwentyReadersAgreeEndurance) {
    StreamRing::Settings settings = small();
    settings.sizes = {s_small * 4, s_small * 4};
    const auto pSut = ringOf(settings);
    constexpr int s_writers = 4;
    const int perWriter = 300 * rounds();
    std::atomic<bool> isOver{false};
    std::vector<std::thread> readers;
    std::vector<std::string> faults(20);
    std::atomic<std::uint64_t> read{0};
    for (std::size_t i = 0; i < faults.size(); ++i) {
        readers.emplace_back([&, i] {
            const StreamSource source(*pSut);
            const auto pReader = readerOf(source);
            std::uint64_t last = 0;
            for (bool isLast = false;;) {
                const bool wasOver = isOver;
                const auto result = pReader->next(Clock::now());
                if (result == stream::IStreamReader::EResult::Nothing) {
                    if (isLast && !pReader->isWaiting())
                        break;
                    isLast = wasOver;
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                } else if (result == stream::IStreamReader::EResult::Gap) {
                    const auto& gap = pReader->gap();
                    if (gap.next - gap.first != gap.count || (last != 0 && gap.first != last + 1))
                        faults[i] = "gap " + std::to_string(gap.first);
                    last = gap.next - 1;
                } else {
                    const auto& record = pReader->record();
                    // Where it began before anything was written the first one may be any.
                    if (last != 0 && record.number != last + 1)
                        faults[i] = std::to_string(record.number) + " after " + std::to_string(last);
                    const std::string expected =
                        std::to_string(record.driver()) + ':' + std::to_string(record.value);
                    if (record.kind != EKind::Int &&
                        record.text != expected + std::string(record.value % 90, '.'))
                        faults[i] = "wrong text " + record.text;
                    last = record.number;
                    ++read;
                }
            }
            if (last != pSut->lastNumber())
                faults[i] = "ended at " + std::to_string(last);
        });
    }
    std::vector<std::thread> writers;
    for (std::uint16_t writer = 1; writer <= s_writers; ++writer) {
        writers.emplace_back([&, writer] {
            for (int i = 0; i < perWriter; ++i) {
                const auto key = static_cast<std::uint32_t>(writer) << 16;
                const auto number = static_cast<std::uint32_t>(i);
                if (i % 2 == 0) {
                    pSut->write(at(i), {.kind = EKind::Int, .key = key, .value = number});
                    continue;
                }
                const std::string text =
                    std::to_string(writer) + ':' + std::to_string(i) + std::string(number % 90, '.');
                pSut->write(at(i), {.kind = EKind::Exit, .key = key, .value = number, .texts = {text}});
            }
        });
    }
    for (auto& writer : writers)
        writer.join();
    isOver = true;
    for (auto& reader : readers)
        reader.join();
    for (const std::string& fault : faults)
        EXPECT_EQ(fault, "");
    EXPECT_EQ(pSut->lastNumber(), static_cast<std::uint64_t>(s_writers) * perWriter);
    EXPECT_GT(read, 0u);
}

// A process with three writing threads is killed at any moment: what it had been told was recorded is there,
// nothing is wrong and nothing out of order.
TEST_F(StreamRingTest, KilledWriterLeavesAllThatItHadRecordedEndurance) {
    for (Rounds kills(rounds(), std::chrono::seconds(60)); kills.goOn();) {
        // The last number that a thread was given, where the kill does not reach.
        void* const pShared =
            ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(pShared, MAP_FAILED);
        auto* const pTold = static_cast<std::atomic<std::uint64_t>*>(pShared);
        {
            ForkedProcess child([&](const ForkedProcess::Side& side) {
                std::string error;
                const auto pRing = StreamRing::create(small(path()), at(0), error);
                // The first writes values, the second everything else, the third both.
                const auto write = [&](std::uint16_t writer) {
                    const auto key = static_cast<std::uint32_t>(writer) << 16;
                    for (std::uint32_t i = 0;; ++i) {
                        const std::string text = std::to_string(writer) + '/' + std::to_string(i);
                        const bool isValue = writer == 1 || (writer == 3 && i % 2 == 0);
                        const auto kind = isValue ? EKind::Text : EKind::Exit;
                        pTold[writer].store(
                            pRing->write(at(i), {.kind = kind, .key = key, .value = i, .texts = {text}}));
                        if (i == 100 && writer == 1)
                            side.tell("writes");
                    }
                };
                std::thread second(write, 2);
                std::thread third(write, 3);
                write(1);
            });
            ASSERT_EQ(child.hear(), "writes");
            ::usleep(static_cast<useconds_t>(::random() % 5000));
            child.kill();
        }
        std::string error;
        const auto pSource = StreamSource::open(path(), error);
        ASSERT_NE(pSource, nullptr) << error;
        EXPECT_FALSE(pSource->isLive());
        const auto pReader = readerOf(*pSource);
        std::uint64_t last = 0;
        std::map<std::uint16_t, std::uint32_t> lastOf;
        std::map<ERing, std::set<std::uint64_t>> seen;
        for (auto result = pReader->next({}); result != stream::IStreamReader::EResult::End;
             result = pReader->next({})) {
            if (result == stream::IStreamReader::EResult::Gap)
                continue;
            const auto& record = pReader->record();
            EXPECT_GT(record.number, last);
            last = record.number;
            EXPECT_EQ(record.text, std::to_string(record.driver()) + '/' + std::to_string(record.value));
            if (lastOf.count(record.driver()) != 0) {
                EXPECT_GT(record.value, lastOf[record.driver()]);
            }
            lastOf[record.driver()] = record.value;
            seen[stream::ringOf(record.kind)].insert(record.number);
        }
        for (const std::uint16_t writer : {1, 2}) {
            const std::uint64_t told = pTold[writer].load();
            const auto& ofRing = seen[writer == 1 ? ERing::Values : ERing::Audit];
            // The third one may have come round since.
            if (told != 0 && !ofRing.empty() && told >= *ofRing.begin()) {
                EXPECT_EQ(ofRing.count(told), 1u) << told << " of " << writer;
            }
        }
        EXPECT_FALSE(seen[ERing::Values].empty());
        ::munmap(pShared, 4096);
    }
}
