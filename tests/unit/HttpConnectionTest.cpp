#include "HttpConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "CannedHost.h"
#include "HangGuard.h"
#include "TemporaryDirectory.h"
#include "UniqueFd.h"

namespace {

using EFault = HttpConnection::EFault;

HttpConnection::Clock::time_point within(std::chrono::milliseconds time = c_hangGuard) {
    return HttpConnection::Clock::now() + time;
}

/// A socket at which nobody accepts, with a queue for that many connections.
base::UniqueFd listener(const std::string& path, int queued) {
    base::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    EXPECT_EQ(0, ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    EXPECT_EQ(0, ::listen(socket.get(), queued));
    return socket;
}

}  // namespace

TEST(HttpConnection, AsksAndIsAnswered) {
    const TemporaryDirectory directory;
    CannedHost host(directory.path("s"));
    host.answer("POST /event", R"({"done":1})", 202);
    HttpConnection sut(host.path());
    const auto answer = sut.exchange("POST", "/api/v1/event", R"({"id":"A"})", within());
    EXPECT_EQ(EFault::None, answer.fault) << answer.reason;
    EXPECT_EQ(202u, answer.status);
    EXPECT_EQ(R"({"done":1})", answer.body);
    EXPECT_EQ(R"({"id":"A"})", host.lastBody("POST /event"));
}

TEST(HttpConnection, KeepsItsConnection) {
    const TemporaryDirectory directory;
    CannedHost host(directory.path("s"));
    HttpConnection sut(host.path());
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(200u, sut.exchange("GET", "/api/v1", "", within()).status);
    EXPECT_EQ(1u, sut.connections());
}

TEST(HttpConnection, TakesAnAnswerOfManyPieces) {
    const TemporaryDirectory directory;
    CannedHost host(directory.path("s"));
    const std::string body(100'000, 'x');
    host.answer("GET /state", body);
    HttpConnection sut(host.path());
    EXPECT_EQ(body, sut.exchange("GET", "/api/v1/state", "", within()).body);
}

TEST(HttpConnection, NobodyThereIsAbsent) {
    const TemporaryDirectory directory;
    HttpConnection missing(directory.path("none"));
    EXPECT_EQ(EFault::Absent, missing.exchange("GET", "/", "", within()).fault);
    const std::string path = directory.path("s");
    listener(path, 1).reset();
    HttpConnection left(path);
    EXPECT_EQ(EFault::Absent, left.exchange("GET", "/", "", within()).fault);
}

TEST(HttpConnection, PathThatNoSocketCanHaveIsAbsentAndSaysTheLimit) {
    HttpConnection sut("/tmp/" + std::string(200, 'x'));
    const auto answer = sut.exchange("GET", "/", "", within());
    EXPECT_EQ(EFault::Absent, answer.fault);
    EXPECT_EQ("the path of a socket has at most 107 bytes", answer.reason);
}

TEST(HttpConnection, HostThatDoesNotAnswerIsLate) {
    const TemporaryDirectory directory;
    CannedHost host(directory.path("s"));
    host.fallSilent();
    HttpConnection sut(host.path());
    EXPECT_EQ(EFault::Late, sut.exchange("GET", "/", "", within(std::chrono::milliseconds(50))).fault);
}

TEST(HttpConnection, HostThatAcceptsNoConnectionIsLate) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("s");
    const base::UniqueFd socket = listener(path, 0);
    HttpConnection first(path);
    EXPECT_EQ(EFault::Late, first.exchange("GET", "/", "", within(std::chrono::milliseconds(50))).fault);
    // Its queue is full now.
    HttpConnection second(path);
    HttpConnection third(path);
    EXPECT_EQ(EFault::Late, second.exchange("GET", "/", "", within(std::chrono::milliseconds(50))).fault);
    EXPECT_EQ(EFault::Late, third.exchange("GET", "/", "", within(std::chrono::milliseconds(50))).fault);
}

TEST(HttpConnection, ConnectionThatEndsBeforeTheAnswerIsBrokenAndMadeAnew) {
    const TemporaryDirectory directory;
    CannedHost host(directory.path("s"));
    host.breakOff(1);
    HttpConnection sut(host.path());
    EXPECT_EQ(EFault::Broken, sut.exchange("GET", "/api/v1", "", within()).fault);
    EXPECT_EQ(200u, sut.exchange("GET", "/api/v1", "", within()).status);
    EXPECT_EQ(2u, sut.connections());
}

TEST(HttpConnection, AnswerThatComesBeforeTheWholeRequestIsReadIsTaken) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("s");
    const base::UniqueFd socket = listener(path, 1);
    std::thread host([&] {
        const base::UniqueFd connection(::accept(socket.get(), nullptr, nullptr));
        char byte = 0;
        EXPECT_EQ(1, ::recv(connection.get(), &byte, 1, 0));
        const std::string answer = "HTTP/1.1 413 Large\r\nContent-Length: 2\r\nConnection: close\r\n\r\n{}";
        EXPECT_EQ(static_cast<ssize_t>(answer.size()),
                  ::send(connection.get(), answer.data(), answer.size(), MSG_NOSIGNAL));
        ::shutdown(connection.get(), SHUT_RDWR);
        // Closed only after the request was broken off: what was not read would take the answer along.
        while (::recv(connection.get(), &byte, 1, 0) > 0) {
        }
    });
    HttpConnection sut(path);
    const auto answer = sut.exchange("POST", "/", std::string(1'000'000, 'x'), within());
    host.join();
    EXPECT_EQ(413u, answer.status) << answer.reason;
}

TEST(HttpConnection, RequestIsSentInOnePiece) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("s");
    const base::UniqueFd socket = listener(path, 1);
    std::thread host([&] {
        const base::UniqueFd connection(::accept(socket.get(), nullptr, nullptr));
        char piece[4096];
        const ssize_t count = ::recv(connection.get(), piece, sizeof piece, 0);
        EXPECT_THAT(std::string(piece, static_cast<std::size_t>(count)),
                    testing::EndsWith("\r\n\r\n{\"id\":1}"));
    });
    HttpConnection sut(path);
    EXPECT_EQ(EFault::Broken, sut.exchange("POST", "/x", R"({"id":1})", within()).fault);
    host.join();
}
