#include "WebPort.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "HttpClient.h"
#include "TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;

TEST(WebPortTest, PortThatTheSystemChoseIsNamedAndConnectedTo) {
    WebPort sut;
    ASSERT_EQ(sut.open({.address = {}, .certificateFile = {}, .keyFile = {}, .tokenFile = {}}), "");
    EXPECT_GT(sut.address().port, 0);
    EXPECT_EQ(sut.url(), "http://127.0.0.1:" + std::to_string(sut.address().port));
    EXPECT_TRUE(HttpClient().connectTo("127.0.0.1", sut.address().port));
}

TEST(WebPortTest, PortThatIsTakenIsToldAndNotOpen) {
    WebPort first;
    ASSERT_EQ(first.open({.address = {}, .certificateFile = {}, .keyFile = {}, .tokenFile = {}}), "");
    WebPort sut;
    EXPECT_EQ(sut.open({.address = first.address(), .certificateFile = {}, .keyFile = {}, .tokenFile = {}}),
              first.address().text() + " is taken by another program");
    EXPECT_FALSE(sut.isOpen());
}

TEST(WebPortTest, AddressThatTheMachineDoesNotHaveIsTold) {
    WebPort sut;
    EXPECT_EQ(sut.open({.address = {.address = "192.0.2.99", .port = 8080},
                        .certificateFile = {},
                        .keyFile = {},
                        .tokenFile = {}}),
              "192.0.2.99:8080 cannot be opened: Cannot assign requested address");
}

TEST(WebPortTest, AllAddressesAreNamedByTheMachinesOwn) {
    WebPort sut;
    ASSERT_EQ(
        sut.open({.address = {.address = "0.0.0.0"}, .certificateFile = {}, .keyFile = {}, .tokenFile = {}}),
        "");
    EXPECT_EQ(sut.url(), "http://127.0.0.1:" + std::to_string(sut.address().port));
    char name[256] = {};
    ASSERT_EQ(::gethostname(name, sizeof name - 1), 0);
    EXPECT_EQ(sut.urlElsewhere(),
              "http:"
              "//" +
                  std::string(name) + ":" + std::to_string(sut.address().port));
}

TEST(WebPortTest, SecretsThatOthersMayReadAreRefused) {
    const TemporaryDirectory directory;
    directory.write("cert", "c");
    directory.write("key", "k");
    fs::permissions(directory.path("key"), fs::perms(0640));
    WebPort sut;
    EXPECT_EQ(
        sut.open({.address = {},
                  .certificateFile = directory.path("cert"),
                  .keyFile = directory.path("key"),
                  .tokenFile = {}}),
        "the key " + directory.path("key") + " may be read by others; chmod 0600 keeps it to its owner");
    directory.write("tokens", "view x");
    fs::permissions(directory.path("tokens"), fs::perms(0604));
    EXPECT_EQ(
        sut.open(
            {.address = {}, .certificateFile = {}, .keyFile = {}, .tokenFile = directory.path("tokens")}),
        "the file of tokens " + directory.path("tokens") +
            " may be read by others; chmod 0600 keeps it to its owner");
}

TEST(WebPortTest, FilesAreReadAndMissingOnesTold) {
    const TemporaryDirectory directory;
    directory.write("cert", "c");
    directory.write("key", "k");
    fs::permissions(directory.path("key"), fs::perms(0600));
    WebPort sut;
    EXPECT_EQ(sut.open({.address = {},
                        .certificateFile = directory.path("none"),
                        .keyFile = directory.path("key"),
                        .tokenFile = {}}),
              "the certificate " + directory.path("none") + " cannot be read: No such file or directory");
    ASSERT_EQ(sut.open({.address = {},
                        .certificateFile = directory.path("cert"),
                        .keyFile = directory.path("key"),
                        .tokenFile = {}}),
              "");
    EXPECT_EQ(sut.certificate(), "c");
    EXPECT_EQ(sut.key(), "k");
    EXPECT_TRUE(sut.url().starts_with("https://127.0.0.1:"));
}

}  // namespace
