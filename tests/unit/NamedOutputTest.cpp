#include "NamedOutput.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <iostream>
#include <thread>

#include "TemporaryDirectory.h"

namespace {

/// What reaches standard output meanwhile.
std::string printed(const std::function<void()>& body) {
    const TemporaryDirectory directory;
    std::cout.flush();
    std::fflush(stdout);
    const int saved = ::dup(STDOUT_FILENO);
    const int file = ::open(directory.path("out").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    ::dup2(file, STDOUT_FILENO);
    ::close(file);
    body();
    std::cout.flush();
    std::fflush(stdout);
    ::dup2(saved, STDOUT_FILENO);
    ::close(saved);
    return directory.read("out");
}

}  // namespace

TEST(NamedOutput, EachLineNamesTheDriver) {
    EXPECT_EQ("before\nSYS: load 1\nSYS: memory 2\nSYS: no line end\nafter\n", printed([] {
                  std::cout << "before" << std::endl;
                  {
                      const NamedOutput sut("SYS");
                      std::cout << "load 1" << std::endl;
                      std::printf("memory 2\n");
                      std::printf("no line end");
                  }
                  std::cout << "after" << std::endl;
              }));
}

TEST(NamedOutput, OutputOfOtherThreadsAndOfFilesIsNamedAsWell) {
    EXPECT_EQ("SYS: thread\nSYS: system\n", printed([] {
                  const NamedOutput sut("SYS");
                  std::thread([] { std::cout << "thread" << std::endl; }).join();
                  EXPECT_EQ(7, ::write(STDOUT_FILENO, "system\n", 7));
              }));
}

TEST(NamedOutput, NothingIsPrintedOfNothing) {
    EXPECT_EQ("", printed([] { const NamedOutput sut("SYS"); }));
}

TEST(NamedOutput, WithoutADescriptorTheOutputIsAsItIs) {
    EXPECT_EQ("load 1\n", printed([] {
                  rlimit before{};
                  ::getrlimit(RLIMIT_NOFILE, &before);
                  const rlimit none{3, before.rlim_max};
                  ::setrlimit(RLIMIT_NOFILE, &none);
                  {
                      const NamedOutput sut("SYS");
                      std::cout << "load 1" << std::endl;
                  }
                  ::setrlimit(RLIMIT_NOFILE, &before);
              }));
}
