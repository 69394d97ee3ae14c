#include "ApiServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ControlSocket.h"
#include "ForkedProcess.h"
#include "HangGuard.h"
#include "HttpClient.h"
#include "LogCapture.h"
#include "TemporaryDirectory.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Answer = std::function<void(ApiAnswer)>;

ApiAnswer plain(const std::string& body) {
    ApiAnswer answer;
    answer.body = body;
    return answer;
}

/// "GET /a body admin"
ApiAnswer echo(const ApiCall& call) {
    return plain(call.method + " " + call.target + (call.body.empty() ? "" : " ") + call.body);
}

std::string get(const std::string& target) {
    return "GET " + target + " HTTP/1.1\r\nHost: localhost\r\n\r\n";
}

std::string post(const std::string& target, const std::string& body) {
    return "POST " + target + " HTTP/1.1\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
}

/// Requests that wait for the test to answer them.
class Waiting {
public:
    void add(const ApiCall& call, Answer answer) {
        const std::lock_guard lock(m_mutex);
        m_answers[call.target] = std::move(answer);
        m_targets.push_back(call.target);
    }
    std::vector<std::string> targets() const {
        const std::lock_guard lock(m_mutex);
        return m_targets;
    }
    bool await(std::size_t count) const {
        return eventually([&] { return targets().size() >= count; });
    }
    /// On the calling thread.
    void answer(const std::string& target, ApiAnswer answer) {
        Answer give;
        {
            const std::lock_guard lock(m_mutex);
            give = std::move(m_answers.at(target));
            m_answers.erase(target);
        }
        give(std::move(answer));
    }
    void answer(const std::string& target) { answer(target, plain(target)); }

private:
    mutable std::mutex m_mutex;
    std::map<std::string, Answer> m_answers;
    std::vector<std::string> m_targets;
};

class ApiServerTest : public testing::Test {
protected:
    ApiServerTest() {
        std::filesystem::permissions(m_directory.path(), std::filesystem::perms(0755));
        m_directory.write("group", "mfview:x:7001:\nmfoperator:x:7002:\n");
        m_directory.write("passwd", "anna:x:4711:100::/:/bin/sh\n");
        settings.roles.starter = ::geteuid();
        settings.roles.groupFile = m_directory.path("group");
        settings.roles.userFile = m_directory.path("passwd");
        handler = [](const ApiCall& call, const Answer& answer) { answer(echo(call)); };
    }

    void start() {
        ASSERT_EQ(m_socket.open(m_directory.path("socket")), "");
        sut = std::make_unique<ApiServer>(
            settings, [this](const ApiCall& call, Answer answer) { handler(call, std::move(answer)); });
        sut->start(m_socket.takeListener());
    }
    void startWaiting() {
        handler = [this](const ApiCall& call, Answer answer) { waiting.add(call, std::move(answer)); };
        start();
    }
    std::string path() const { return m_directory.path("socket"); }
    bool hasSessions(std::size_t count) {
        return eventually([&] { return sut->sessions().size() == count; });
    }

    /// As another user: connects as often, sends to each the request; the statuses of what comes back, and
    /// the last body.
    std::string askAs(uid_t user, gid_t group, int connections, const std::string& request) {
        ForkedProcess client([&](const ForkedProcess::Side& side) {
            std::string told;
            std::vector<HttpClient> clients(static_cast<std::size_t>(connections));
            if (!ForkedProcess::become(user, group))
                side.tell("failed");
            HttpClient::Answer answer;
            for (HttpClient& connection : clients) {
                connection.connect(path());
                answer = connection.ask(request);
                told += std::to_string(answer.status) + " ";
            }
            side.tell(told + answer.body);
        });
        return client.hear();
    }

    const TemporaryDirectory m_directory;
    LogCapture log;
    ApiServer::Settings settings;
    std::function<void(const ApiCall&, Answer)> handler;
    std::atomic<int> begun = 0;  ///< requests, where the handler counts them
    Waiting waiting;
    ControlSocket m_socket;
    std::unique_ptr<ApiServer> sut;
};

std::size_t openDescriptors() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

// --- requests and answers

TEST_F(ApiServerTest, AnswersWhatTheHandlerSays) {
    handler = [](const ApiCall& call, const Answer& answer) {
        ApiAnswer given = plain(call.method + "|" + call.target + "|" + call.contentType + "|" + call.body);
        given.status = 201;
        answer(given);
    };
    start();
    HttpClient client(path());
    const auto answer = client.ask(
        "PUT /api/v1/x?y=%20 HTTP/1.1\r\nContent-Type: application/json\r\nContent-Length: 2\r\n\r\n{}");
    EXPECT_EQ(answer.status, 201);
    EXPECT_EQ(answer.body, "PUT|/api/v1/x?y=%20|application/json|{}");
    EXPECT_EQ(answer.field("Connection"), "keep-alive");
    EXPECT_EQ(client.ask(get("/again")).body, "GET|/again||");
}

TEST_F(ApiServerTest, HandlerIsToldWhoAsks) {
    std::optional<ApiCaller> caller;
    handler = [&](const ApiCall& call, const Answer& answer) {
        caller = call.caller;
        answer({});
    };
    start();
    HttpClient client(path());
    client.ask(get("/"));
    ASSERT_TRUE(caller);
    EXPECT_EQ(caller->role, ERole::Admin);
    EXPECT_EQ(caller->uid, ::geteuid());
    EXPECT_EQ(caller->pid, ::getpid());
    ASSERT_TRUE(hasSessions(1));
    EXPECT_EQ(caller->session, sut->sessions().at(0).id);
}

TEST_F(ApiServerTest, RequestsAreAnsweredTheSameHoweverTheyAreCut) {
    start();
    const std::string requests = post("/a", "{\"x\":1}") +
                                 "PUT /b HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n"
                                 "2\r\nab\r\n1;e=f\r\nc\r\n0\r\n\r\n" +
                                 get("/c");
    for (std::size_t cut = 1; cut < requests.size(); ++cut) {
        HttpClient client(path());
        client.send(requests.substr(0, cut));
        ASSERT_TRUE(client.waitUntilRead());
        client.send(requests.substr(cut));
        ASSERT_EQ(client.receive().body, "POST /a {\"x\":1}") << cut;
        ASSERT_EQ(client.receive().body, "PUT /b abc") << cut;
        ASSERT_EQ(client.receive().body, "GET /c") << cut;
    }
}

TEST_F(ApiServerTest, RequestsMayComeByteByByte) {
    start();
    HttpClient client(path());
    for (const char byte : post("/a", "{\"x\":1}") + get("/b")) {
        client.send(std::string(1, byte));
        ASSERT_TRUE(client.waitUntilRead());
    }
    EXPECT_EQ(client.receive().body, "POST /a {\"x\":1}");
    EXPECT_EQ(client.receive().body, "GET /b");
}

TEST_F(ApiServerTest, AnswersKeepTheOrderOfTheRequests) {
    startWaiting();
    HttpClient client(path());
    client.send(get("/1") + get("/2") + get("/3") + get("/4"));
    ASSERT_TRUE(waiting.await(4));
    std::vector<std::thread> threads;
    for (const char* pTarget : {"/4", "/2", "/3"})
        threads.emplace_back([this, pTarget] { waiting.answer(pTarget); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_FALSE(client.isReadable(50ms));
    waiting.answer("/1");
    for (const char* pTarget : {"/1", "/2", "/3", "/4"})
        EXPECT_EQ(client.receive().body, pTarget);
}

TEST_F(ApiServerTest, WhatChangesSomethingIsHandledAlone) {
    startWaiting();
    HttpClient client(path());
    client.send(get("/1") + post("/2", "x") + get("/3") + get("/4"));
    ASSERT_TRUE(waiting.await(1));
    std::this_thread::sleep_for(50ms);
    EXPECT_THAT(waiting.targets(), ElementsAre("/1"));
    waiting.answer("/1");
    ASSERT_TRUE(waiting.await(2));
    std::this_thread::sleep_for(50ms);
    EXPECT_THAT(waiting.targets(), ElementsAre("/1", "/2"));
    waiting.answer("/2");
    ASSERT_TRUE(waiting.await(4));
    waiting.answer("/3");
    waiting.answer("/4");
    for (const char* pTarget : {"/1", "/2", "/3", "/4"})
        EXPECT_EQ(client.receive().body, pTarget);
}

TEST_F(ApiServerTest, OneConnectionHoldsUpNoOther) {
    startWaiting();
    HttpClient first(path());
    first.send(post("/1", "x"));
    ASSERT_TRUE(waiting.await(1));
    HttpClient second(path());
    second.send(post("/2", "x"));
    ASSERT_TRUE(waiting.await(2));
    waiting.answer("/2");
    EXPECT_EQ(second.receive().body, "/2");
    waiting.answer("/1");
    EXPECT_EQ(first.receive().body, "/1");
}

TEST_F(ApiServerTest, ClientThatAsksForMuchLetsOthersInBetween) {
    std::atomic<bool> hasOtherAsked = false;
    std::vector<std::string> targets;
    handler = [&](const ApiCall& call, const Answer& answer) {
        targets.push_back(call.target);
        begun = static_cast<int>(targets.size());
        eventually([&] { return hasOtherAsked.load(); });
        answer(plain("x"));
    };
    start();
    HttpClient other(path());
    ASSERT_TRUE(hasSessions(1));
    HttpClient client(path());
    std::string many;
    for (int i = 0; i < 8; ++i)
        many += get("/many");
    client.send(many);
    ASSERT_TRUE(eventually([&] { return begun == 1; }));
    other.send(get("/one"));
    hasOtherAsked = true;
    EXPECT_EQ(other.receive().status, 200);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(client.receive().status, 200);
    ASSERT_EQ(targets.size(), 9u);
    EXPECT_LT(std::find(targets.begin(), targets.end(), "/one") - targets.begin(), 4);
}

TEST_F(ApiServerTest, HeadIsAGetWithoutItsBody) {
    start();
    HttpClient client(path());
    client.send("HEAD /abc HTTP/1.1\r\n\r\n" + get("/next"));
    const auto head = client.receive(true);
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.field("Content-Length"), "8");
    EXPECT_EQ(client.receive().body, "GET /next");
}

TEST_F(ApiServerTest, ClientThatWaitsToSendItsBodyIsTold) {
    start();
    HttpClient client(path());
    client.send("POST /a HTTP/1.1\r\nContent-Length: 2\r\nExpect: 100-continue\r\n\r\n");
    const auto interim = client.receive();
    EXPECT_EQ(interim.head, "HTTP/1.1 100 Continue\r\n\r\n");
    client.send("{}");
    EXPECT_EQ(client.receive().body, "POST /a {}");
    EXPECT_EQ(client.ask(get("/b")).body, "GET /b");
}

TEST_F(ApiServerTest, ClientThatSendsItsBodyAnywayIsNotTold) {
    start();
    HttpClient client(path());
    client.send("POST /a HTTP/1.1\r\nContent-Length: 2\r\nExpect: 100-continue\r\n\r\n{}");
    EXPECT_EQ(client.receive().body, "POST /a {}");
}

TEST_F(ApiServerTest, TooLongABodyIsRefusedBeforeItComes) {
    start();
    HttpClient client(path());
    const auto answer =
        client.ask("POST /a HTTP/1.1\r\nContent-Length: 70000\r\nExpect: 100-continue\r\n\r\n");
    EXPECT_EQ(answer.status, 413);
    EXPECT_EQ(
        answer.body,
        R"({"error":{"code":"too-large","text":"the request's body has more than 65536 bytes","nearest":[]}})");
    EXPECT_EQ(answer.field("Connection"), "close");
    EXPECT_TRUE(client.isAtEnd());
}

TEST_F(ApiServerTest, ClientThatStillSendsSeesWhyItIsRefused) {
    settings.limits.lingerTime = 100s;
    start();
    HttpClient client(path());
    EXPECT_TRUE(client.send("POST /a HTTP/1.1\r\nContent-Length: 200000\r\n\r\n"));
    EXPECT_TRUE(eventually([&] { return client.isReadable(0ms); }));
    std::this_thread::sleep_for(50ms);
    EXPECT_TRUE(client.send(std::string(200'000, 'x')));
    EXPECT_EQ(client.receive().status, 413);
    EXPECT_TRUE(client.isAtEnd());
}

TEST_F(ApiServerTest, WhatIsNoRequestEndsTheConnectionAfterThoseBeforeIt) {
    startWaiting();
    HttpClient client(path());
    client.send(get("/1") + "hello\r\n\r\n" + get("/2"));
    ASSERT_TRUE(waiting.await(1));
    waiting.answer("/1");
    EXPECT_EQ(client.receive().body, "/1");
    const auto answer = client.receive();
    EXPECT_EQ(answer.status, 400);
    EXPECT_THAT(answer.body,
                HasSubstr(R"({"error":{"code":"request-invalid","text":"this is no HTTP request: )"));
    EXPECT_TRUE(client.isAtEnd());
    EXPECT_THAT(waiting.targets(), ElementsAre("/1"));
    EXPECT_TRUE(hasSessions(0));
}

TEST_F(ApiServerTest, ConnectionEndsWhenTheClientSaysSo) {
    start();
    HttpClient client(path());
    client.send("GET /1 HTTP/1.1\r\nConnection: close\r\n\r\n" + get("/2"));
    EXPECT_EQ(client.receive().field("Connection"), "close");
    EXPECT_TRUE(client.isAtEnd());
    HttpClient old(path());
    EXPECT_EQ(old.ask("GET /1 HTTP/1.0\r\n\r\n").body, "GET /1");
    EXPECT_TRUE(old.isAtEnd());
}

TEST_F(ApiServerTest, ClientThatIsDoneWithSendingGetsItsAnswers) {
    startWaiting();
    HttpClient client(path());
    client.send(get("/1") + get("/2"));
    client.endSending();
    ASSERT_TRUE(waiting.await(2));
    waiting.answer("/1");
    waiting.answer("/2");
    EXPECT_EQ(client.receive().body, "/1");
    EXPECT_EQ(client.receive().body, "/2");
    EXPECT_TRUE(client.isAtEnd());
}

TEST_F(ApiServerTest, ManyRequestsInOneGoAndThenNoMoreAreAllAnswered) {
    start();
    HttpClient client(path());
    std::string requests;
    for (int i = 0; i < 100; ++i)
        requests += get("/" + std::to_string(i));
    client.send(requests);
    client.endSending();
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(client.receive().body, "GET /" + std::to_string(i));
    EXPECT_TRUE(client.isAtEnd());
}

TEST_F(ApiServerTest, HalfARequestAtTheEndIsToldSo) {
    start();
    HttpClient client(path());
    client.send("POST /1 HTTP/1.1\r\nContent-Length: 5\r\n\r\nab");
    client.endSending();
    EXPECT_EQ(
        client.receive().body,
        R"({"error":{"code":"request-invalid","text":"the connection ended in the middle of a request","nearest":[]}})");
}

TEST_F(ApiServerTest, ClientThatIsGoneIsForgottenThoughItsAnswerIsStillToCome) {
    startWaiting();
    {
        HttpClient client(path());
        client.send(get("/1"));
        ASSERT_TRUE(waiting.await(1));
    }
    EXPECT_TRUE(hasSessions(0));
    waiting.answer("/1");
    HttpClient next(path());
    next.send(get("/2"));
    ASSERT_TRUE(waiting.await(2));
    waiting.answer("/2");
    EXPECT_EQ(next.receive().body, "/2");
}

TEST_F(ApiServerTest, HandlerThatThrowsOrForgetsIsToldToTheClient) {
    handler = [](const ApiCall& call, const Answer&) {
        if (call.target == "/throws")
            throw std::runtime_error("no luck");
    };
    start();
    HttpClient client(path());
    for (const char* pTarget : {"/throws", "/forgets"}) {
        const auto answer = client.ask(get(pTarget));
        EXPECT_EQ(answer.status, 500);
        EXPECT_THAT(answer.body, HasSubstr(R"("code":"internal")"));
    }
    EXPECT_THAT(log.text(), HasSubstr("GET /throws of"));
    EXPECT_THAT(log.text(), HasSubstr("no luck"));
}

TEST_F(ApiServerTest, SecondAnswerIsNone) {
    handler = [](const ApiCall& call, const Answer& answer) {
        answer(plain("first " + call.target));
        answer(plain("second"));
    };
    start();
    HttpClient client(path());
    EXPECT_EQ(client.ask(get("/1")).body, "first /1");
    EXPECT_EQ(client.ask(get("/2")).body, "first /2");
}

TEST_F(ApiServerTest, AnswersOfManyThreadsReachTheirClients) {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::pair<std::string, Answer>> jobs;
    bool isOver = false;
    handler = [&](const ApiCall& call, Answer answer) {
        const std::lock_guard lock(mutex);
        jobs.emplace_back(call.target, std::move(answer));
        changed.notify_one();
    };
    start();
    std::vector<std::thread> workers;
    for (int i = 0; i < 3; ++i) {
        workers.emplace_back([&] {
            std::unique_lock lock(mutex);
            while (true) {
                changed.wait(lock, [&] { return isOver || !jobs.empty(); });
                if (jobs.empty())
                    return;
                auto [target, answer] = std::move(jobs.back());
                jobs.pop_back();
                lock.unlock();
                answer(plain(target));
                lock.lock();
            }
        });
    }
    std::vector<std::thread> clients;
    std::atomic<int> right = 0;
    for (int i = 0; i < 8; ++i) {
        clients.emplace_back([&, i] {
            HttpClient client(path());
            for (int round = 0; round < 20; ++round) {
                const std::string target = "/" + std::to_string(i) + "/" + std::to_string(round) + "/";
                client.send(get(target + "a") + get(target + "b") + get(target + "c"));
                for (const char* pLetter : {"a", "b", "c"})
                    right += client.receive().body == target + pLetter;
            }
        });
    }
    for (std::thread& client : clients)
        client.join();
    {
        const std::lock_guard lock(mutex);
        isOver = true;
        changed.notify_all();
    }
    for (std::thread& worker : workers)
        worker.join();
    sut->stop();
    EXPECT_EQ(right, 8 * 20 * 3);
}

// --- what takes too long

TEST_F(ApiServerTest, HeaderHasATime) {
    settings.limits.headerTime = 100ms;
    start();
    HttpClient client;
    HttpClient::Answer answer;
    // On a busy machine the first byte may come too late, and the connection is closed without a word.
    ASSERT_TRUE(eventually([&] {
        client = HttpClient(path());
        client.send("GET / HTTP/1.1\r\nX");
        answer = client.receive();
        return answer.status != 0;
    }));
    EXPECT_EQ(answer.status, 408);
    EXPECT_THAT(answer.body, HasSubstr("the request's first lines took longer than"));
    EXPECT_TRUE(client.isAtEnd());
}

TEST_F(ApiServerTest, HeaderThatGoesOnAndOnHasNoMoreTime) {
    settings.limits.headerTime = 2000ms;
    start();
    HttpClient client(path());
    std::atomic<bool> isOver = false;
    std::thread sender([&] {
        client.send("GET / HTTP/1.1\r\nX: ");
        while (!isOver && client.send("x"))
            std::this_thread::sleep_for(10ms);
    });
    EXPECT_TRUE(eventually([&] { return client.isReadable(0ms); }));
    isOver = true;
    sender.join();
    EXPECT_EQ(client.receive().status, 408);
}

TEST_F(ApiServerTest, BodyHasATime) {
    settings.limits.bodyTime = 100ms;
    start();
    HttpClient client(path());
    const auto answer = client.ask("POST / HTTP/1.1\r\nContent-Length: 5\r\n\r\nab");
    EXPECT_EQ(answer.status, 408);
    EXPECT_THAT(answer.body, HasSubstr("the request's body took longer than"));
}

TEST_F(ApiServerTest, ConnectionThatSaysNothingEnds) {
    settings.limits.headerTime = 100ms;
    start();
    HttpClient client(path());
    EXPECT_TRUE(client.isAtEnd());
}

TEST_F(ApiServerTest, ConnectionThatSaysNothingMoreEnds) {
    settings.limits.idleTime = 100ms;
    start();
    HttpClient client(path());
    EXPECT_EQ(client.ask(get("/")).status, 200);
    EXPECT_TRUE(client.isAtEnd());
    EXPECT_TRUE(hasSessions(0));
}

TEST_F(ApiServerTest, WaitingForAnAnswerIsNotIdle) {
    settings.limits.idleTime = 100ms;
    startWaiting();
    HttpClient client(path());
    client.send(get("/0") + get("/1"));
    ASSERT_TRUE(waiting.await(2));
    waiting.answer("/0");
    EXPECT_EQ(client.receive().body, "/0");
    EXPECT_FALSE(client.isReadable(400ms));
    waiting.answer("/1");
    EXPECT_EQ(client.receive().body, "/1");
}

TEST_F(ApiServerTest, ClientThatTakesNoAnswerLosesItsConnectionAndHoldsUpNoOther) {
    settings.limits.writeTime = 300ms;
    const std::string large(8'000'000, 'x');
    handler = [large](const ApiCall& call, const Answer& answer) {
        answer(call.target == "/large" ? plain(large) : echo(call));
    };
    start();
    HttpClient slow(path());
    slow.send(get("/large"));
    HttpClient other(path());
    EXPECT_EQ(other.ask(get("/1")).body, "GET /1");
    EXPECT_TRUE(eventually([&] { return sut->sessions().size() == 1; }));
    EXPECT_EQ(other.ask(get("/2")).body, "GET /2");
}

TEST_F(ApiServerTest, ClientThatTakesItsAnswerBitByBitGetsIt) {
    // All of it takes longer, a part of it does not.
    settings.limits.writeTime = 3000ms;
    const std::string large(3'000'000, 'x');
    handler = [large](const ApiCall&, const Answer& answer) { answer(plain(large)); };
    start();
    HttpClient slow(path());
    slow.send(get("/large"));
    std::size_t taken = 0;
    while (taken < large.size()) {
        std::vector<char> piece(50'000);
        const ssize_t count = ::recv(slow.fd(), piece.data(), piece.size(), 0);
        ASSERT_GT(count, 0);
        taken += static_cast<std::size_t>(count);
        std::this_thread::sleep_for(80ms);
    }
}

TEST_F(ApiServerTest, AnswersThatAreNotTakenAreBounded) {
    const std::string large(1'000'000, 'x');
    handler = [this, large](const ApiCall&, const Answer& answer) {
        ++begun;
        answer(plain(large));
    };
    start();
    HttpClient slow(path());
    std::string requests;
    for (int i = 0; i < 200; ++i)
        requests += post("/", "x");
    slow.send(requests);
    ASSERT_TRUE(eventually([&] { return begun > 0; }));
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(begun, 1);
}

TEST_F(ApiServerTest, AnswersThatNobodyTakesAreBoundedForAllTogether) {
    settings.limits.unsentInAll = 3'000'000;
    const std::string large(2'000'000, 'x');
    handler = [large](const ApiCall&, const Answer& answer) { answer(plain(large)); };
    start();
    std::vector<HttpClient> slow(3);
    for (HttpClient& client : slow) {
        client.connect(path());
        client.send(get("/"));
        ASSERT_TRUE(eventually([&] { return client.isReadable(0ms); }));
    }
    HttpClient other(path());
    const auto answer = other.ask(get("/"));
    EXPECT_EQ(answer.status, 503);
    EXPECT_THAT(answer.body, HasSubstr(R"("code":"busy")"));
    slow.clear();
    EXPECT_TRUE(hasSessions(1));
    EXPECT_EQ(other.ask(get("/")).body.size(), large.size());
}

TEST_F(ApiServerTest, RequestsOfOneConnectionUnderWayAreBounded) {
    startWaiting();
    HttpClient client(path());
    std::string requests;
    for (int i = 0; i < 100; ++i)
        requests += get("/" + std::to_string(i));
    client.send(requests);
    ASSERT_TRUE(waiting.await(8));
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(waiting.targets().size(), 8u);
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(waiting.await(static_cast<std::size_t>(i) + 1));
        waiting.answer("/" + std::to_string(i));
        ASSERT_EQ(client.receive().body, "/" + std::to_string(i));
    }
}

TEST_F(ApiServerTest, TooManyRequestsAreToldSoAndSlowedDown) {
    settings.limits.requestsPerSecond = 10;
    handler = [this](const ApiCall&, const Answer& answer) {
        ++begun;
        answer({});
    };
    start();
    HttpClient client(path());
    std::string requests;
    for (int i = 0; i < 14; ++i)
        requests += get("/");
    client.send(requests);
    std::map<int, int> statuses;
    HttpClient::Answer last;
    for (int i = 0; i < 14; ++i) {
        const auto answer = client.receive();
        ++statuses[answer.status];
        if (answer.status == 429)
            last = answer;
    }
    EXPECT_GE(statuses[200], 10);
    EXPECT_GE(statuses[429], 1);
    EXPECT_EQ(statuses[200], begun);
    EXPECT_EQ(last.body,
              R"({"error":{"code":"too-many","text":"the host takes 10 requests a second","nearest":[]}})");
    EXPECT_EQ(last.field("Connection"), "keep-alive");
}

// --- how many there may be

TEST_F(ApiServerTest, ConnectionsBeyondTheLimitAreToldSoAndTakeNoDescriptor) {
    start();
    const std::size_t before = openDescriptors();
    std::vector<HttpClient> clients(64);
    for (HttpClient& client : clients) {
        ASSERT_TRUE(client.connect(path()));
        ASSERT_EQ(client.ask(get("/")).status, 200);
    }
    for (int i = 0; i < 100; ++i) {
        HttpClient more(path());
        const auto answer = more.receive();
        EXPECT_EQ(answer.status, 429);
        EXPECT_EQ(
            answer.body,
            R"({"error":{"code":"too-many","text":"there are 64 connections open, and there may be no more","nearest":[]}})");
        EXPECT_TRUE(more.isAtEnd());
    }
    EXPECT_LE(openDescriptors(), before + 2 * 64 + 1);
    for (HttpClient& client : clients)
        EXPECT_EQ(client.ask(get("/")).status, 200);
    clients.pop_back();
    ASSERT_TRUE(hasSessions(63));
    EXPECT_EQ(HttpClient(path()).ask(get("/")).status, 200);
}

TEST_F(ApiServerTest, TenThousandConnectionsOneAfterAnotherLeaveNothing) {
    settings.limits.requestsPerSecond = 1'000'000;
    start();
    const std::size_t before = openDescriptors();
    int answered = 0;
    for (int i = 0; i < 10'000; ++i) {
        HttpClient client(path());
        // Some say nothing, some half a request.
        if (i % 3 == 0) {
            client.send(i % 2 == 0 ? "GET" : "");
            continue;
        }
        const int status = client.ask(get("/")).status;
        answered += status == 200 || status == 429;
    }
    EXPECT_EQ(answered, 6666);
    EXPECT_TRUE(hasSessions(0));
    EXPECT_TRUE(eventually([&] { return openDescriptors() == before; }));
    EXPECT_EQ(HttpClient(path()).ask(get("/")).body, "GET /");
}

TEST_F(ApiServerTest, FiveHundredConnectionsAtOnceAreEachAnswered) {
    start();
    std::vector<HttpClient> clients(500);
    for (HttpClient& client : clients)
        ASSERT_TRUE(client.connect(path()));
    std::map<int, int> statuses;
    for (HttpClient& client : clients) {
        client.send(get("/"));
        ++statuses[client.receive().status];
    }
    EXPECT_EQ(statuses[200], 64);
    EXPECT_EQ(statuses[429], 436);
    clients.clear();
    EXPECT_TRUE(hasSessions(0));
}

TEST_F(ApiServerTest, WithoutADescriptorItWaitsAndGoesOn) {
    start();
    HttpClient first(path());
    ASSERT_EQ(first.ask(get("/")).status, 200);
    HttpClient second;
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    std::vector<base::UniqueFd> taken;
    const rlimit low{512, before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &low);
    while (taken.empty() || taken.back())
        taken.emplace_back(::dup(STDERR_FILENO));
    taken.pop_back();
    // The client's own descriptor is the last there is.
    taken.pop_back();
    ASSERT_TRUE(second.connect(path()));
    second.send(get("/"));
    timespec begin{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &begin);
    EXPECT_FALSE(second.isReadable(1500ms));
    timespec end{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &end);
    const auto used = std::chrono::seconds(end.tv_sec - begin.tv_sec) +
                      std::chrono::nanoseconds(end.tv_nsec - begin.tv_nsec);
    EXPECT_LT(used, 100ms);
    EXPECT_EQ(first.ask(get("/")).status, 200);
    taken.clear();
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(second.receive().status, 200);
    EXPECT_THAT(log.text(), HasSubstr("the control socket cannot take a connection: Too many open files"));
}

// --- who may

TEST_F(ApiServerTest, OthersHaveTheRolesOfTheirGroups) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root, to become other users";
    handler = [](const ApiCall& call, const Answer& answer) {
        answer(plain(call.caller.name + " " + std::to_string(static_cast<int>(call.caller.role))));
    };
    start();
    EXPECT_EQ(askAs(4711, 7001, 1, get("/")), "200 anna 1");
    EXPECT_EQ(askAs(4712, 7002, 1, get("/")), "200 uid 4712 2");
    EXPECT_EQ(askAs(0, 0, 1, get("/")), "200 uid 0 3");
}

TEST_F(ApiServerTest, UserWithoutARoleIsToldWhichThereAre) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root, to become other users";
    handler = [this](const ApiCall&, const Answer&) { ++begun; };
    start();
    EXPECT_EQ(
        askAs(4711, 7004, 1, post("/api/v1/shutdown", "{}") + get("/")),
        R"(403 {"error":{"code":"not-allowed","text":"you have no role here: the members of the group mfview )"
        R"(may look, those of mfoperator operate, those of mfadmin do everything","nearest":[]}})");
    EXPECT_EQ(begun, 0);
    EXPECT_THAT(sut->sessions(), IsEmpty());
}

TEST_F(ApiServerTest, OneUserHasEightConnections) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root, to become other users";
    start();
    EXPECT_EQ(
        askAs(4711, 7001, 9, get("/")),
        "200 200 200 200 200 200 200 200 429 "
        R"({"error":{"code":"too-many","text":"anna has 8 connections open, and may have no more","nearest":[]}})");
}

TEST_F(ApiServerTest, ChildOfADriverProcessIsRefused) {
    handler = [this](const ApiCall&, const Answer& answer) {
        ++begun;
        answer({});
    };
    std::atomic<int> driver = -1;
    settings.roles.isDriverProcess = [&](int pid) { return pid == driver; };
    start();
    ForkedProcess process([&](const ForkedProcess::Side& side) {
        side.wait();
        if (::fork() != 0)
            ::pause();
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        HttpClient client(path());
        client.send(get("/"));
        const auto answer = client.receive();
        side.tell(std::to_string(answer.status) + (client.isAtEnd() ? " closed " : " open ") + answer.body);
    });
    driver = process.pid();
    process.goOn();
    const std::string told = process.hear();
    EXPECT_THAT(told, testing::StartsWith(R"(403 closed {"error":{"code":"not-allowed","text":"process )"));
    EXPECT_THAT(
        told,
        HasSubstr(" is a driver's process or was started by one; drivers do not use the control socket"));
    EXPECT_EQ(begun, 0);
    EXPECT_THAT(log.text(), HasSubstr("the control socket refuses a connection: process "));
}

TEST_F(ApiServerTest, SessionsAreShown) {
    start();
    HttpClient first(path());
    first.ask(get("/"));
    HttpClient second(path());
    second.ask(get("/"));
    second.ask(get("/"));
    const auto sessions = sut->sessions();
    ASSERT_EQ(sessions.size(), 2u);
    EXPECT_LT(sessions[0].id, sessions[1].id);
    EXPECT_EQ(sessions[0].requests, 1u);
    EXPECT_EQ(sessions[1].requests, 2u);
    EXPECT_EQ(sessions[1].role, ERole::Admin);
    EXPECT_EQ(sessions[1].pid, ::getpid());
    EXPECT_EQ(sessions[1].uid, ::geteuid());
    first.close();
    EXPECT_TRUE(hasSessions(1));
}

TEST_F(ApiServerTest, CurlIsUnderstood) {
    start();
    FILE* pOutput =
        ::popen(("curl -s -S --unix-socket " + path() +
                 " http://localhost/api/v1/drivers -w ' %{http_code}\\n' --next -s -S --unix-socket " +
                 path() + " -H 'Expect: 100-continue' -d '{\"a\":1}' http://localhost/api/v1/fid 2>&1")
                    .c_str(),
                "r");
    ASSERT_NE(pOutput, nullptr);
    std::string output;
    for (int byte = 0; (byte = ::fgetc(pOutput)) != EOF;)
        output += static_cast<char>(byte);
    EXPECT_EQ(::pclose(pOutput), 0);
    EXPECT_EQ(output, "GET /api/v1/drivers 200\nPOST /api/v1/fid {\"a\":1}");
}

// --- the end

TEST_F(ApiServerTest, EndTellsThoseThatWait) {
    startWaiting();
    HttpClient client(path());
    client.send(get("/1") + get("/2"));
    HttpClient idle(path());
    ASSERT_TRUE(waiting.await(2));
    waiting.answer("/2");
    sut->stop();
    for (const char* pBody :
         {R"({"error":{"code":"stopping","text":"the host is shutting down","nearest":[]}})", "/2"})
        EXPECT_EQ(client.receive().body, pBody);
    EXPECT_TRUE(client.isAtEnd());
    EXPECT_TRUE(idle.isAtEnd());
    EXPECT_FALSE(HttpClient().connect(path()));
    EXPECT_THAT(sut->sessions(), IsEmpty());
    sut.reset();
    waiting.answer("/1");
}

TEST_F(ApiServerTest, EndTellsThatWhatWasBegunMayBeDone) {
    startWaiting();
    HttpClient client(path());
    client.send(post("/1", "{}"));
    ASSERT_TRUE(waiting.await(1));
    sut->stop();
    EXPECT_EQ(
        client.receive().body,
        R"({"error":{"code":"stopping","text":"the host is shutting down; whether this was done is not known","nearest":[]}})");
}

TEST_F(ApiServerTest, EndDoesNotOvertakeAnAnswerAlreadyGiven) {
    handler = [this](const ApiCall&, const Answer& answer) {
        answer(plain("done"));
        ++begun;
        std::this_thread::sleep_for(50ms);
    };
    start();
    HttpClient client(path());
    client.send(get("/"));
    ASSERT_TRUE(eventually([&] { return begun == 1; }));
    sut->stop();
    const auto answer = client.receive();
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, "done");
}

TEST_F(ApiServerTest, EndDoesNotWaitForAClientThatTakesNothing) {
    const std::string large(8'000'000, 'x');
    handler = [large](const ApiCall&, const Answer& answer) { answer(plain(large)); };
    start();
    std::vector<HttpClient> clients(3);
    for (HttpClient& client : clients) {
        client.connect(path());
        client.send(get("/"));
        ASSERT_TRUE(eventually([&] { return client.isReadable(0ms); }));
    }
    sut->stop();
    EXPECT_THAT(sut->sessions(), IsEmpty());
}

TEST_F(ApiServerTest, EndAmongRequestsAndAnswersIsClean) {
    for (int round = 0; round < 20; ++round) {
        ControlSocket socket;
        ASSERT_EQ(socket.open(path()), "");
        std::mutex mutex;
        std::vector<Answer> answers;
        ApiServer server(settings, [&](const ApiCall&, Answer answer) {
            const std::lock_guard lock(mutex);
            answers.push_back(std::move(answer));
        });
        server.start(socket.takeListener());
        std::atomic<bool> isOver = false;
        std::thread answering([&] {
            while (!isOver) {
                std::vector<Answer> some;
                {
                    const std::lock_guard lock(mutex);
                    some.swap(answers);
                }
                for (const Answer& answer : some)
                    answer(plain("x"));
            }
        });
        std::vector<std::thread> clients;
        for (int i = 0; i < 3; ++i) {
            clients.emplace_back([&] {
                HttpClient client;
                if (!client.connect(path()))
                    return;
                while (client.send(get("/") + get("/")) && client.receive().status != 0 &&
                       client.receive().status != 0) {
                }
            });
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(round));
        server.stop();
        for (std::thread& client : clients)
            client.join();
        isOver = true;
        answering.join();
    }
}

/// An answer that the test gives piece by piece.
class Pieces final : public IAnswerBody {
public:
    Piece next() override {
        const std::lock_guard lock(m_mutex);
        ++m_asked;
        return {std::exchange(m_text, {}), m_isOver ? ENext::End : ENext::Later};
    }
    void put(const std::string& text, bool isOver = false) {
        const std::lock_guard lock(m_mutex);
        m_text += text;
        m_isOver = isOver;
    }
    int asked() const {
        const std::lock_guard lock(m_mutex);
        return m_asked;
    }

private:
    mutable std::mutex m_mutex;
    std::string m_text;
    bool m_isOver = false;
    int m_asked = 0;
};

class ApiServerTestInPieces : public ApiServerTest {
protected:
    ApiServerTestInPieces() {
        handler = [this](const ApiCall& call, const Answer& answer) {
            if (call.target == "/pieces")
                answer({.contentType = "text/plain", .body = {}, .pMore = pPieces});
            else
                answer(echo(call));
        };
    }
    const std::shared_ptr<Pieces> pPieces = std::make_shared<Pieces>();
};

TEST_F(ApiServerTestInPieces, ComeAsTheyAreThereAndTheConnectionGoesOn) {
    start();
    HttpClient client(path());
    const auto head = client.ask(get("/pieces"));
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.field("Transfer-Encoding"), "chunked");
    EXPECT_EQ(head.field("Content-Length"), "");
    pPieces->put("first\n");
    EXPECT_EQ(client.receiveBytes(11), "6\r\nfirst\n\r\n");
    pPieces->put("the second\n");
    EXPECT_EQ(client.receiveBytes(16), "b\r\nthe second\n\r\n");
    pPieces->put("", true);
    EXPECT_EQ(client.receiveBytes(5), "0\r\n\r\n");
    EXPECT_EQ(client.ask(get("/a")).body, "GET /a");
}

TEST_F(ApiServerTestInPieces, OfTheFormerVersionEndWithTheConnection) {
    start();
    HttpClient client(path());
    pPieces->put("first\n");
    client.send("GET /pieces HTTP/1.0\r\n\r\n");
    EXPECT_EQ(client.receive().field("Connection"), "close");
    EXPECT_EQ(client.receiveBytes(6), "first\n");
    pPieces->put("last\n", true);
    EXPECT_EQ(client.receiveBytes(5), "last\n");
    EXPECT_TRUE(client.isAtEnd());
}

TEST_F(ApiServerTestInPieces, AreNotAskedForAheadOfTheClient) {
    start();
    HttpClient client(path());
    client.ask(get("/pieces"));
    pPieces->put(std::string(8 << 20, 'x'));
    ASSERT_TRUE(eventually([&] { return client.isReadable(0ms); }));
    // The piece does not fit into what the system takes, and none is asked for before it is gone.
    const int asked = pPieces->asked();
    HttpClient other(path());
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(other.ask(get("/a")).body, "GET /a");
    std::this_thread::sleep_for(200ms);
    EXPECT_LE(pPieces->asked(), asked + 1);
    EXPECT_EQ(client.receiveBytes((8 << 20) + 8 + 2).size(), std::size_t{8 << 20} + 10);
    EXPECT_TRUE(eventually([&] { return pPieces->asked() > asked + 1; }));
}

TEST_F(ApiServerTestInPieces, EndWhenTheClientGoes) {
    start();
    {
        HttpClient client(path());
        client.ask(get("/pieces"));
    }
    EXPECT_TRUE(hasSessions(0));
}

TEST_F(ApiServerTestInPieces, EndInOrderWhenTheHostStops) {
    start();
    HttpClient client(path());
    client.ask(get("/pieces"));
    sut->stop();
    EXPECT_EQ(client.receiveBytes(5), "0\r\n\r\n");
    EXPECT_TRUE(client.isAtEnd());
}

}  // namespace
