#include "UniqueFd.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <type_traits>

namespace {

int anyDescriptor() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool isOpen(int fd) {
    return ::fcntl(fd, F_GETFD) >= 0;
}

}  // namespace

TEST(UniqueFd, IsNoneAtFirst) {
    const base::UniqueFd sut;
    EXPECT_FALSE(sut);
    EXPECT_EQ(sut.get(), -1);
}

TEST(UniqueFd, FailedCallIsNone) {
    EXPECT_FALSE(base::UniqueFd(::open("/no/such/file", O_RDONLY | O_CLOEXEC)));
}

TEST(UniqueFd, DescriptorZeroIsOne) {
    base::UniqueFd kept(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
    {
        const base::UniqueFd sut(STDIN_FILENO);
        EXPECT_TRUE(sut);
    }
    EXPECT_FALSE(isOpen(STDIN_FILENO));
    ::dup2(kept.get(), STDIN_FILENO);
}

TEST(UniqueFd, ClosesAtItsEnd) {
    const int fd = anyDescriptor();
    {
        const base::UniqueFd sut(fd);
        EXPECT_EQ(sut.get(), fd);
        EXPECT_TRUE(isOpen(fd));
    }
    EXPECT_FALSE(isOpen(fd));
}

TEST(UniqueFd, ResetClosesOnce) {
    const int fd = anyDescriptor();
    base::UniqueFd sut(fd);
    sut.reset();
    EXPECT_FALSE(sut);
    EXPECT_FALSE(isOpen(fd));
    const base::UniqueFd next(fd >= 0 ? anyDescriptor() : -1);
    ASSERT_EQ(next.get(), fd);
    sut.reset();
    EXPECT_TRUE(isOpen(fd));
}

TEST(UniqueFd, MovedOnHasOneOwner) {
    const int fd = anyDescriptor();
    base::UniqueFd first(fd);
    {
        const base::UniqueFd second(std::move(first));
        EXPECT_EQ(second.get(), fd);
        EXPECT_FALSE(first);
    }
    EXPECT_FALSE(isOpen(fd));
}

TEST(UniqueFd, AssignedClosesAtOnceWhatItHad) {
    const int former = anyDescriptor();
    const int fd = anyDescriptor();
    base::UniqueFd sut(former);
    base::UniqueFd given(fd);
    sut = std::move(given);
    EXPECT_EQ(sut.get(), fd);
    EXPECT_FALSE(given);
    EXPECT_FALSE(isOpen(former));
    EXPECT_TRUE(isOpen(fd));
}

TEST(UniqueFd, HandedOverStaysOpen) {
    const int fd = anyDescriptor();
    {
        base::UniqueFd sut(fd);
        EXPECT_EQ(sut.release(), fd);
        EXPECT_FALSE(sut);
    }
    EXPECT_TRUE(isOpen(fd));
    ::close(fd);
}

TEST(UniqueFd, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<base::UniqueFd>);
    EXPECT_FALSE((std::is_assignable_v<base::UniqueFd&, const base::UniqueFd&>));
}
