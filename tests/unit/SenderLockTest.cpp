#include "SenderLock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "Rounds.h"

namespace {

using namespace std::chrono_literals;

class SenderLock : public testing::Test {
protected:
    void SetUp() override {
        std::string path = "/dev/shm/mfd-sender-lock-XXXXXX";
        ASSERT_NE(::mkdtemp(path.data()), nullptr);
        m_directory = path;
        ::setenv("MFD_QUEUE_DIR", m_directory.c_str(), 1);
        std::string error;
        m_pFile = sal::QueueFile::make("L", *sal::QueueGeometry::make(4, 1024), error);
        ASSERT_NE(m_pFile, nullptr) << error;
        ASSERT_TRUE(m_pFile->takeTicket(5));
    }
    void TearDown() override {
        m_pFile.reset();
        ::unsetenv("MFD_QUEUE_DIR");
        std::filesystem::remove_all(m_directory);
    }

    std::string m_directory;
    std::unique_ptr<sal::QueueFile> m_pFile;
    sal::SenderLockWords m_words;
};

/// One after the other into the critical section; each sees whether somebody else came in.
class Section {
public:
    /// False when somebody else was inside meanwhile.
    bool stay(int who, int looks) {
        m_inside.store(who, std::memory_order_relaxed);
        bool isAlone = true;
        for (int i = 0; i < looks; ++i) {
            isAlone = isAlone && m_inside.load(std::memory_order_relaxed) == who;
        }
        return isAlone;
    }

private:
    std::atomic<int> m_inside{0};
};

}  // namespace

TEST_F(SenderLock, AHolderInARowBecomesFavoured) {
    sal::SenderLock sut(m_words, *m_pFile, 5, true);
    for (int i = 0; i < 300; ++i) {
        sal::Deadline deadline(0);
        ASSERT_EQ(sut.lock(deadline), sal::SenderLock::EResult::Locked);
        ASSERT_TRUE(sut.unlock());
    }
    EXPECT_EQ(m_words.favoured.load(), 5U);
    // And does not touch the word any more.
    m_words.holder.store(77);
    sal::Deadline deadline(0);
    EXPECT_EQ(sut.lock(deadline), sal::SenderLock::EResult::Locked);
    EXPECT_TRUE(sut.unlock());
    EXPECT_EQ(m_words.holder.load(), 77U);
}

TEST_F(SenderLock, OverwrittenWordsAreNoticedAtTheUnlocking) {
    sal::SenderLock sut(m_words, *m_pFile, 5, true);
    for (int i = 0; i < 300; ++i) {
        sal::Deadline deadline(0);
        ASSERT_EQ(sut.lock(deadline), sal::SenderLock::EResult::Locked);
        ASSERT_TRUE(sut.unlock());
    }
    sal::Deadline deadline(0);
    ASSERT_EQ(sut.lock(deadline), sal::SenderLock::EResult::Locked);
    m_words.seats[0].inside.store(1);
    EXPECT_FALSE(sut.unlock());
}

TEST_F(SenderLock, NonsenseInASeatIsBroken) {
    sal::SenderLock sut(m_words, *m_pFile, 5, true);
    m_words.unsettled.store(1);
    m_words.seats[3].owner.store(9);
    m_words.seats[3].inside.store(9);
    sal::Deadline deadline(0);
    EXPECT_EQ(sut.lock(deadline), sal::SenderLock::EResult::Broken);
}

TEST_F(SenderLock, WhoeverDiedInsideIsOutWhenTheFavourIsWithdrawn) {
    sal::SenderLock sut(m_words, *m_pFile, 5, true);
    m_words.favoured.store(9);
    m_words.seats[3].owner.store(9);
    m_words.seats[3].inside.store(sal::SenderLockWords::markOf(9));
    sal::Deadline deadline(0);
    EXPECT_EQ(sut.lock(deadline), sal::SenderLock::EResult::Locked);
    EXPECT_EQ(m_words.favoured.load(), 0U);
    EXPECT_EQ(m_words.seats[3].inside.load(), 0U);
    EXPECT_EQ(m_words.unsettled.load(), 0U);
}

TEST_F(SenderLock, TryLockDoesNotWaitForAFavouredOneInside) {
    sal::SenderLock sut(m_words, *m_pFile, 5, true);
    for (int i = 0; i < 300; ++i) {
        sal::Deadline deadline(0);
        ASSERT_EQ(sut.lock(deadline), sal::SenderLock::EResult::Locked);
        ASSERT_TRUE(sut.unlock());
    }
    ASSERT_TRUE(sut.tryLock());
    bool isLocked = true;
    std::thread([&] { isLocked = sut.tryLock(); }).join();
    EXPECT_FALSE(isLocked);
    ASSERT_TRUE(sut.unlock());
    // Nobody keeps the word from it.
    std::thread([&] {
        isLocked = sut.tryLock();
        isLocked = isLocked && sut.unlock();
    }).join();
    EXPECT_TRUE(isLocked);
}

TEST_F(SenderLock, EnduranceNobodyComesInWhileTheFavouredOneIsInside) {
    sal::SenderLock sut(m_words, *m_pFile, 5, true);
    Section section;
    std::atomic<bool> isOver{false};
    std::atomic<bool> wasAlone{true};
    // A store to a line that others write as well stays on its way for long: what follows it is seen late.
    struct alignas(64) Line {
        std::atomic<unsigned> word{0};
    };
    std::array<Line, 8> contended;
    std::thread often([&] {
        for (unsigned i = 0; !isOver; ++i) {
            for (Line& line : contended) {
                line.word.store(i, std::memory_order_relaxed);
            }
            sal::Deadline deadline(-1);
            sut.lock(deadline);
            if (!section.stay(1, 20)) {
                wasAlone = false;
            }
            sut.unlock();
        }
    });
    int withdrawn = 0;
    std::minstd_rand random(3);
    Rounds all(rounds() * 25, rounds() * 1s);
    while ((all.goOn() || withdrawn == 0) && wasAlone) {
        for (int i = 0; i < 1'000'000 && m_words.favoured.load(std::memory_order_relaxed) == 0; ++i) {
            for (Line& line : contended) {
                line.word.store(7, std::memory_order_relaxed);
            }
        }
        // The favoured one runs into the stores of this one for a while.
        for (unsigned i = random() % 200; i > 0; --i) {
            for (Line& line : contended) {
                line.word.store(i, std::memory_order_relaxed);
            }
        }
        withdrawn += m_words.favoured.load() != 0 ? 1 : 0;
        sal::Deadline deadline(-1);
        sut.lock(deadline);
        if (!section.stay(2, 2000)) {
            wasAlone = false;
        }
        sut.unlock();
    }
    isOver = true;
    often.join();
    EXPECT_TRUE(wasAlone);
    EXPECT_GT(withdrawn, 0);
}
