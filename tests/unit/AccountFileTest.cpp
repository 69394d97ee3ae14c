#include "AccountFile.h"

#include <gtest/gtest.h>

#include "NoDescriptors.h"
#include "TemporaryDirectory.h"

namespace {

TEST(AccountFile, FindsTheNameOfANumber) {
    const TemporaryDirectory directory;
    directory.write("group", "root:x:0:\nmfview:x:1001:anna,ben\nlast:x:5:");
    AccountFile sut(directory.path("group"));
    EXPECT_EQ(sut.nameOf(0), "root");
    EXPECT_EQ(sut.nameOf(1001), "mfview");
    EXPECT_EQ(sut.nameOf(5), "last");
    EXPECT_EQ(sut.nameOf(7), "");
}

TEST(AccountFile, TakesTheFirstNameOfSeveral) {
    const TemporaryDirectory directory;
    directory.write("passwd", "anna:x:1000:100::/home/anna:/bin/sh\nother:x:1000:100::/:/bin/sh\n");
    AccountFile sut(directory.path("passwd"));
    EXPECT_EQ(sut.nameOf(1000), "anna");
}

TEST(AccountFile, LeavesOutLinesThatAreNone) {
    const TemporaryDirectory directory;
    directory.write(
        "passwd", "\n# a remark\n:x:3:\nonly\na:b\nneg:x:-1:\nword:x:12a:\nbig:x:99999999999:\nok:x:4:\n+\n");
    AccountFile sut(directory.path("passwd"));
    EXPECT_EQ(sut.nameOf(4), "ok");
    EXPECT_EQ(sut.nameOf(3), "");
    EXPECT_EQ(sut.nameOf(12), "");
    EXPECT_EQ(sut.nameOf(static_cast<unsigned>(-1)), "");
}

TEST(AccountFile, IsReadAnewWhenItHasChanged) {
    const TemporaryDirectory directory;
    directory.write("group", "mfview:x:1001:\n");
    AccountFile sut(directory.path("group"));
    EXPECT_EQ(sut.nameOf(1001), "mfview");
    directory.write("group", "mfadmin:x:1001:\n");
    EXPECT_EQ(sut.nameOf(1001), "mfadmin");
    std::filesystem::remove(directory.path("group"));
    EXPECT_EQ(sut.nameOf(1001), "");
    directory.write("group", "mfview:x:1001:\n");
    EXPECT_EQ(sut.nameOf(1001), "mfview");
}

TEST(AccountFile, IsKeptWhileItCannotBeReadAndReadOnceItCan) {
    const TemporaryDirectory directory;
    directory.write("group", "mfview:x:1001:\n");
    AccountFile sut(directory.path("group"));
    {
        const NoDescriptors none;
        EXPECT_EQ(sut.nameOf(1001), "");
    }
    EXPECT_EQ(sut.nameOf(1001), "mfview");
    directory.write("group", "mfadmin:x:1001:x\n");
    {
        const NoDescriptors none;
        EXPECT_EQ(sut.nameOf(1001), "mfview");
    }
    EXPECT_EQ(sut.nameOf(1001), "mfadmin");
}

TEST(AccountFile, MissingOneHasNoNames) {
    const TemporaryDirectory directory;
    AccountFile sut(directory.path("none"));
    EXPECT_EQ(sut.nameOf(0), "");
}

}  // namespace
