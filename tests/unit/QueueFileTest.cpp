#include "QueueFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "QueueLayout.h"

namespace {

/// Done once, before this thread's next try to take a lock.
thread_local std::function<void()> t_beforeLock;

}  // namespace

/// Stands before the C library's; the sanitizers call it, too.
extern "C" __attribute__((no_sanitize("address", "thread"))) int fcntl(int descriptor, int command, ...) {
    std::va_list arguments;
    va_start(arguments, command);
    void* const pArgument = va_arg(arguments, void*);
    va_end(arguments);
    if (command == F_OFD_SETLK && t_beforeLock)
        std::exchange(t_beforeLock, {})();
    return static_cast<int>(::syscall(SYS_fcntl, descriptor, command, pArgument));
}

namespace {

using sal::QueueFile;

/// Each test has a queue directory of its own.
class QueueFileTest : public testing::Test {
protected:
    QueueFileTest() {
        std::string path = "/dev/shm/mfd-queue-test-XXXXXX";
        EXPECT_NE(nullptr, ::mkdtemp(path.data()));
        m_directory = path;
        ::setenv("MFD_QUEUE_DIR", path.c_str(), 1);
    }
    ~QueueFileTest() override {
        ::unsetenv("MFD_QUEUE_DIR");
        std::filesystem::remove_all(m_directory);
    }

    std::string file() const { return m_directory + "/Q"; }
    static std::unique_ptr<QueueFile> make() {
        std::string error;
        auto pFile = QueueFile::make("Q", *sal::QueueGeometry::make(4, 64), error);
        EXPECT_TRUE(pFile && pFile->publish(error) == QueueFile::EResult::Done) << error;
        return pFile;
    }
    /// A file under the name to which nobody is attached.
    static void leaveStale() { make()->abandon(); }

    std::string m_directory;
};

}  // namespace

TEST_F(QueueFileTest, StaleFileIsRemoved) {
    leaveStale();
    ASSERT_TRUE(std::filesystem::exists(file()));
    std::string error;
    EXPECT_EQ(QueueFile::EResult::Done, QueueFile::removeStale("Q", error)) << error;
    EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST_F(QueueFileTest, FileThatHasTakenTheNameOfTheStaleOneMeanwhileStays) {
    leaveStale();
    std::unique_ptr<QueueFile> pFresh;
    t_beforeLock = [&] {
        // Somebody else was faster.
        std::filesystem::remove(file());
        pFresh = make();
    };
    std::string error;
    EXPECT_EQ(QueueFile::EResult::Busy, QueueFile::removeStale("Q", error));
    ASSERT_TRUE(pFresh);
    EXPECT_TRUE(std::filesystem::exists(file()));
}
