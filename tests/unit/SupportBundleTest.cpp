#include "SupportBundle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "ProgramOutput.h"
#include "TemporaryDirectory.h"

namespace {

std::string unpacked(const std::string& path, const std::string& name) {
    return ProgramOutput::of({"tar", "--extract", "--gzip", "--to-stdout", "--file", path, "support/" + name})
        .text;
}

}  // namespace

TEST(SupportBundle, HoldsItsPartsRedactedForItsOwnerAlone) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("b.tar.gz");
    SupportBundle sut;
    sut.add("a.txt", "pin=1234 x=5\n", "a text");
    sut.addJson("b.json", R"({"token":"abc","x":5})", "an answer");
    sut.add("empty.txt", "", "nothing");
    sut.addJson("c.json", "no JSON, pin=77", "a bad answer");
    EXPECT_EQ(3u, sut.parts().size());
    EXPECT_EQ("", sut.write(path));
    EXPECT_EQ("pin=*** x=5\n", unpacked(path, "a.txt"));
    EXPECT_EQ("{\n \"token\": \"***\",\n \"x\": 5\n}\n", unpacked(path, "b.json"));
    EXPECT_EQ("no JSON, pin=***", unpacked(path, "c.json"));
    struct stat info {};
    ASSERT_EQ(0, ::stat(path.c_str(), &info));
    EXPECT_EQ(0600u, info.st_mode & 07777u);
}

TEST(SupportBundle, ReplacesNoFile) {
    const TemporaryDirectory directory;
    directory.write("b.tar.gz", "mine");
    SupportBundle sut;
    sut.add("a.txt", "x", "a text");
    EXPECT_EQ(directory.path("b.tar.gz") + ": File exists", sut.write(directory.path("b.tar.gz")));
    EXPECT_EQ("mine", directory.read("b.tar.gz"));
}

TEST(SupportBundle, DirectoryThatIsMissingIsSaid) {
    const TemporaryDirectory directory;
    EXPECT_EQ(directory.path("none/b.tar.gz") + ": No such file or directory",
              SupportBundle().write(directory.path("none/b.tar.gz")));
}
