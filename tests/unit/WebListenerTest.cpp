#include "WebListener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <boost/asio/post.hpp>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "HangGuard.h"
#include "HttpClient.h"
#include "LogCapture.h"
#include "PageFiles.h"
#include "TemporaryDirectory.h"
#include "WebSocketClient.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::StartsWith;
using Answer = std::function<void(ApiAnswer)>;

/// Has one text, which a test may change.
class Source final : public ILiveSource {
public:
    std::string host() const override { return R"("instance":"i","workplace":"w")"; }
    void look() override { m_now = version; }
    LiveChanges changes(const LivePosition& since) const override {
        LiveChanges found;
        found.end.store = m_now;
        if (since.store < m_now)
            found.members = R"("fill":")" + std::string(size, 'x') + R"(","news":)" + std::to_string(m_now);
        return found;
    }
    std::atomic<std::uint64_t> version = 1;
    std::atomic<std::size_t> size = 0;

private:
    std::uint64_t m_now = 0;
};

/// Gives one line at each look.
class Lines final : public IAnswerBody {
public:
    Piece next() override { return {"line " + std::to_string(++m_last) + "\n", ENext::Later}; }

private:
    int m_last = 0;
};

/// A port of this machine, served on a thread as the API's is.
class WebListenerTest : public testing::Test {
protected:
    ~WebListenerTest() override { end(); }

    void start() {
        ASSERT_EQ(port.open(settings), "");
        m_pSut = std::make_unique<WebListener>(
            WebListener::Parts{
                .port = port,
                .sessions = sessions,
                .live = source,
                .workplace = "/etc/mf/site.xml",
                .http = http,
                .limits = limits,
                .channel = {},
                .pageFollower =
                    [this](std::uint64_t session, bool isThere) {
                        const std::lock_guard lock(pagesMutex);
                        pages.push_back((isThere ? "came " : "went ") + std::to_string(session));
                    },
                .recorder = [this](
                                const ApiCaller& caller,
                                const std::string& what) { recorded.push_back(caller.who() + ": " + what); }},
            m_io, m_pDoor, [this](const ApiCall& call, const Answer& answer) {
                ApiAnswer given;
                given.body = call.method + " " + call.target + " " + call.caller.name + " " +
                             inWords(call.caller.role) + " " + call.body;
                asker = call.caller.who();
                if (call.target.starts_with("/api/v1/stream"))
                    given = {.body = {}, .pMore = pPieces};
                answer(given);
            });
        m_pSut->start();
        m_thread = std::thread([this] { m_io.run(); });
    }
    void onThread(const std::function<void()>& work) {
        std::promise<void> done;
        boost::asio::post(m_io, [&] {
            work();
            done.set_value();
        });
        done.get_future().wait();
    }
    void end() {
        if (!m_thread.joinable())
            return;
        boost::asio::post(m_io, [this] {
            m_pSut->stop({});
            m_pSut->closeAll();
        });
        m_thread.join();
    }
    void stop() {
        onThread([this] { m_pSut->stop({}); });
    }

    std::string host() const { return "localhost:" + std::to_string(port.address().port); }
    HttpClient connected() const {
        HttpClient client;
        client.connectTo("127.0.0.1", port.address().port);
        return client;
    }
    std::string request(const std::string& method, const std::string& target, const std::string& fields = {},
                        const std::string& body = {}) const {
        return method + " " + target + " HTTP/1.1\r\nHost: " + host() + "\r\n" + fields +
               (body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n") + "\r\n" +
               body;
    }
    HttpClient::Answer ask(const std::string& method, const std::string& target,
                           const std::string& fields = {}, const std::string& body = {}) const {
        return connected().ask(request(method, target, fields, body));
    }
    HttpClient::Answer open(const std::string& code) const {
        return ask("POST", "/api/v1/session", "Content-Type: application/json\r\n",
                   R"({"code":")" + code + "\"}");
    }
    static ApiCaller anna(ERole role = ERole::Operate) {
        ApiCaller caller;
        caller.role = role;
        caller.name = "anna";
        return caller;
    }
    std::string token(ERole role = ERole::Operate) {
        return sessions.open(sessions.addCode(anna(role)), "127.0.0.1").token;
    }
    static std::string bearer(const std::string& token) { return "Authorization: Bearer " + token + "\r\n"; }

    /// A page that has said who it is.
    struct Page {
        HttpClient client;
        WebSocketClient socket;
    };
    std::unique_ptr<Page> openPage(const std::string& first) const {
        auto pPage = std::make_unique<Page>();
        pPage->client.connectTo("127.0.0.1", port.address().port);
        EXPECT_EQ(pPage->socket.open(pPage->client, "/api/v1/live", host()).status, 101);
        pPage->socket.send(first);
        return pPage;
    }
    static std::string authorize(const std::string& token) {
        return R"({"authorize":")" + token + R"(","page":"now"})";
    }

    LogCapture log;
    const std::shared_ptr<IAnswerBody> pPieces = std::make_shared<Lines>();
    std::mutex pagesMutex;
    std::vector<std::string> recorded;  ///< by whom
    std::vector<std::string> pages;     ///< what was told of them
    std::string asker;                  ///< of the last request that got to the API
    WebPort port;
    WebPort::Settings settings;
    WebListener::Limits limits;
    HttpLimits http;
    WebSessions sessions;
    Source source;

private:
    boost::asio::io_context m_io;
    const std::shared_ptr<ApiThreadDoor> m_pDoor = std::make_shared<ApiThreadDoor>(
        [this](ApiThreadDoor::Work work) { boost::asio::post(m_io, std::move(work)); });
    std::unique_ptr<WebListener> m_pSut;
    std::thread m_thread;
};

// --- the page and the sessions

TEST_F(WebListenerTest, PageIsForEverybodyAndNothingElse) {
    start();
    const auto page = ask("GET", "/?x=1");
    EXPECT_EQ(page.status, 200);
    EXPECT_EQ(page.body, findPageFile("/")->bytes);
    EXPECT_EQ(page.field("X-Content-Type-Options"), "nosniff");
    EXPECT_EQ(page.field("Referrer-Policy"), "no-referrer");
    EXPECT_THAT(page.field("Content-Security-Policy"), StartsWith("default-src 'self'; "));
    for (const char* pTarget : {"/api/v1", "/api/v1/drivers", "/healthz", "/metrics", "/api"}) {
        const auto answer = ask("GET", pTarget);
        EXPECT_EQ(answer.status, 401) << pTarget;
        EXPECT_EQ(answer.field("WWW-Authenticate"), "Bearer");
    }
    EXPECT_THAT(
        ask("GET", "/api/v1").body,
        HasSubstr(
            R"({"error":{"code":"session-needed","text":"a session is needed; mfctl panel opens one")"));
    EXPECT_EQ(ask("POST", "/api/v1/fid").status, 401);
    EXPECT_EQ(ask("GET", "/none").status, 404);
}

TEST_F(WebListenerTest, CodeOpensASessionInWhoseNameTheApiAnswers) {
    start();
    const auto opened = open(sessions.addCode(anna()));
    EXPECT_EQ(opened.status, 200);
    EXPECT_THAT(opened.body, HasSubstr(R"("role":"operate","user":"anna","workplace":"/etc/mf/site.xml"})"));
    EXPECT_EQ(opened.field("Set-Cookie"), "");
    const std::string own = sessions.sessions().at(0).user;
    EXPECT_EQ(own, "anna");
    const std::string begin = R"({"token":")";
    ASSERT_THAT(opened.body, StartsWith(begin));
    const std::string given = opened.body.substr(begin.size(), 43);
    EXPECT_EQ(ask("GET", "/api/v1/drivers?x", bearer(given)).body, "GET /api/v1/drivers?x anna operate ");
    EXPECT_EQ(asker, "anna (web session 1 from 127.0.0.1)");
    EXPECT_THAT(log.text(), HasSubstr("HOST: the web panel is opened from 127.0.0.1 by anna with the role "
                                      "operate, session 1\n"));
}

TEST_F(WebListenerTest, WrongCodesAreRefused) {
    start();
    EXPECT_EQ(open("nonsense").status, 403);
    EXPECT_EQ(open("000000").status, 403);
    EXPECT_EQ(open("").status, 400);
    const auto send = [this](const std::string& body, const std::string& type) {
        return ask("POST", "/api/v1/session", "Content-Type: " + type + "\r\n", body).status;
    };
    EXPECT_EQ(send(R"({"code":1})", "application/json"), 400);
    EXPECT_EQ(send(R"({"code":"a","x":1})", "application/json"), 400);
    EXPECT_EQ(send("[]", "application/json"), 400);
    EXPECT_EQ(send("{", "application/json"), 400);
    EXPECT_EQ(send(R"({"code":"a"})", "text/plain"), 415);
    EXPECT_EQ(ask("GET", "/api/v1/session", bearer(token())).status, 405);
    EXPECT_TRUE(sessions.sessions().size() == 1);
}

TEST_F(WebListenerTest, SessionThatIsEndedAnswersNoMore) {
    start();
    const std::string given = token();
    EXPECT_EQ(ask("DELETE", "/api/v1/session", bearer(given)).status, 200);
    EXPECT_EQ(ask("GET", "/api/v1", bearer(given)).status, 401);
}

TEST_F(WebListenerTest, WhoOpensASessionAndEndsItIsRecordedAndInTheLog) {
    start();
    const std::string given = open(sessions.addCode(anna())).body.substr(10, 43);
    EXPECT_EQ(open("nonsense").status, 403);
    EXPECT_EQ(ask("DELETE", "/api/v1/session").status, 401);
    EXPECT_EQ(ask("DELETE", "/api/v1/session", bearer(given)).status, 200);
    end();
    EXPECT_EQ(recorded, (std::vector<std::string>{"anna (web session 1 from 127.0.0.1): open the web panel",
                                                  "anna (web session 1 from 127.0.0.1): sign out of the web "
                                                  "panel"}));
    EXPECT_THAT(log.text(),
                HasSubstr("HOST: anna (web session 1 from 127.0.0.1) signs out of the web panel\n"));
}

TEST_F(WebListenerTest, RequestsForOtherNamesAndOfOtherPagesAreRefused) {
    start();
    const std::string given = token();
    HttpClient client = connected();
    EXPECT_EQ(client.ask("GET / HTTP/1.1\r\nHost: evil.example\r\n\r\n").status, 421);
    EXPECT_EQ(client.ask("GET / HTTP/1.1\r\n\r\n").status, 421);
    EXPECT_EQ(ask("POST", "/api/v1/fid", bearer(given) + "Origin: http:" + std::string("//evil.example\r\n"))
                  .status,
              403);
    EXPECT_EQ(ask("POST", "/api/v1/fid", bearer(given) + "Origin: http://" + host() + "\r\n").status, 200);
    HttpClient page = connected();
    WebSocketClient socket;
    EXPECT_EQ(
        socket.open(page, "/api/v1/live", host(), "Origin: http:" + std::string("//evil.example\r\n")).status,
        403);
    EXPECT_EQ(connected().ask("GET / HTTP/1.1\r\nHost: " + host() + "\r\nHost: evil.example\r\n\r\n").status,
              400);
}

TEST_F(WebListenerTest, SessionHasTwentyActionsASecond) {
    start();
    const std::string given = token();
    const std::string other = token();
    int done = 0;
    HttpClient client = connected();
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 60; ++i)
        done += client.ask(request("POST", "/api/v1/fid", bearer(given))).status == 200 ? 1 : 0;
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(done, 20);
    EXPECT_LE(done, 20 + took.count() * 20 + 1);
    EXPECT_EQ(client.ask(request("POST", "/api/v1/fid", bearer(other))).status, 200);
    EXPECT_EQ(client.ask(request("GET", "/api/v1", bearer(given))).status, 200);
}

TEST_F(WebListenerTest, OfTooManyConnectionsOfStrangersTheOldestEnds) {
    limits.connections = 2;
    start();
    HttpClient first = connected();
    HttpClient second = connected();
    EXPECT_EQ(first.ask(request("GET", "/")).status, 200);
    EXPECT_EQ(second.ask(request("GET", "/")).status, 200);
    EXPECT_EQ(connected().ask(request("GET", "/")).status, 200);
    EXPECT_TRUE(first.isAtEnd());
    EXPECT_EQ(second.ask(request("GET", "/")).status, 200);
}

TEST_F(WebListenerTest, ConnectionsOfSessionsStayWhereStrangersCrowdIn) {
    limits.connections = 3;
    start();
    const std::string given = token();
    HttpClient own = connected();
    ASSERT_EQ(own.ask(request("GET", "/api/v1", bearer(given))).status, 200);
    std::vector<HttpClient> strangers;
    for (int i = 0; i < 20; ++i)
        strangers.push_back(connected());
    EXPECT_EQ(ask("GET", "/api/v1", bearer(given)).status, 200);
    EXPECT_EQ(own.ask(request("GET", "/api/v1", bearer(given))).status, 200);
}

TEST_F(WebListenerTest, IdleConnectionOfASessionMakesRoom) {
    limits.connections = 2;
    start();
    const std::string given = token();
    HttpClient idle = connected();
    HttpClient busy = connected();
    ASSERT_EQ(idle.ask(request("GET", "/api/v1", bearer(given))).status, 200);
    ASSERT_EQ(busy.ask(request("GET", "/api/v1", bearer(given))).status, 200);
    const std::string begun = request("GET", "/api/v1", bearer(given));
    busy.send(begun.substr(0, 10));
    ASSERT_TRUE(busy.waitUntilRead());
    EXPECT_EQ(ask("GET", "/api/v1", bearer(given)).status, 200);
    EXPECT_TRUE(idle.isAtEnd());
    EXPECT_EQ(busy.ask(begun.substr(10)).status, 200);
}

TEST_F(WebListenerTest, OpenPagesLeaveRoomForTheirRequests) {
    limits.pages = 2;
    limits.connections = 1;
    start();
    const std::string given = token();
    const auto pFirst = openPage(authorize(given));
    ASSERT_THAT(pFirst->socket.receive(), HasSubstr("hello"));
    const auto pSecond = openPage(authorize(given));
    ASSERT_THAT(pSecond->socket.receive(), HasSubstr("hello"));
    EXPECT_EQ(ask("POST", "/api/v1/fid", bearer(given)).status, 200);
    EXPECT_EQ(openPage(authorize(given))->socket.receive(),
              R"({"kind":"bye","code":"limit","text":"2 pages are open, and there may be no more"})");
    source.version = 2;
    EXPECT_THAT(pFirst->socket.receiveWith(R"("news":2)"), HasSubstr("chunk"));
}

TEST_F(WebListenerTest, ChannelThatHasNotSaidWhoItIsGivesWay) {
    limits.connections = 1;
    start();
    HttpClient client = connected();
    WebSocketClient silent;
    ASSERT_EQ(silent.open(client, "/api/v1/live", host()).status, 101);
    EXPECT_EQ(ask("GET", "/").status, 200);
    EXPECT_EQ(silent.receive(), "");
}

TEST_F(WebListenerTest, RequestsOfStrangersLeaveSomeForSessions) {
    limits.requestsPerSecond = 20;
    start();
    const std::string given = token();
    int status = 200;
    for (int i = 0; i < 1000 && status != 429; ++i)
        status = ask("GET", "/").status;
    EXPECT_EQ(status, 429);
    EXPECT_EQ(ask("GET", "/api/v1", bearer(given)).status, 200);
}

// --- pages

TEST_F(WebListenerTest, PageIsToldWhoItIsThenEverythingThenWhatChanges) {
    start();
    const auto pPage = openPage(authorize(token()));
    EXPECT_THAT(pPage->socket.receive(),
                HasSubstr(R"({"kind":"hello","instance":"i","workplace":"w","role":"operate")"));
    EXPECT_THAT(pPage->socket.receive(), HasSubstr(R"("from":0,)"));
    source.version = 2;
    EXPECT_THAT(pPage->socket.receiveWith("chunk"), HasSubstr(R"("news":2)"));
    EXPECT_NE(pPage->socket.receiveWith(R"("kind":"heartbeat")"), "");
}

TEST_F(WebListenerTest, PageWithoutASessionIsLetGo) {
    start();
    EXPECT_EQ(openPage(authorize("nonsense"))->socket.receive(),
              R"({"kind":"bye","code":"revoked","text":"a session is needed; mfctl panel opens one"})");
    const auto pPage = openPage(R"({"page":"now"})");
    EXPECT_THAT(pPage->socket.receive(), HasSubstr("revoked"));
    EXPECT_EQ(pPage->socket.receive(), "");
}

TEST_F(WebListenerTest, FirstMessageThatIsNotUnderstoodEndsThePage) {
    start();
    for (const char* pFirst : {"x", "[]", "{\"authorize\":1}", "{\"authorize\":\"\"}"})
        EXPECT_THAT(
            openPage(pFirst)->socket.receive(),
            HasSubstr(R"({"kind":"bye","code":"limit","text":"the first message is not understood: )"))
            << pFirst;
}

TEST_F(WebListenerTest, PageThatSaysNothingIsLetGo) {
    start();
    HttpClient client = connected();
    WebSocketClient socket;
    ASSERT_EQ(socket.open(client, "/api/v1/live", host()).status, 101);
    EXPECT_EQ(socket.receive(),
              R"({"kind":"bye","code":"limit","text":"no first message has come within 5 s"})");
    EXPECT_EQ(socket.receive(), "");
}

TEST_F(WebListenerTest, ChattyPageIsLetGo) {
    start();
    const auto pPage = openPage(authorize(token()));
    for (int i = 0; i < 200; ++i)
        pPage->socket.send("{}");
    EXPECT_THAT(pPage->socket.receiveWith("bye"), HasSubstr(R"("code":"limit")"));
}

TEST_F(WebListenerTest, FollowerHearsOfEachPageOfASessionAndOfItsEnd) {
    start();
    openPage(authorize("none"))->socket.receive();
    const std::string known = token();
    const std::uint64_t session = sessions.sessions().at(0).id;
    {
        const auto pPage = openPage(authorize(known));
        pPage->socket.receive();
    }
    const auto told = [&] {
        const std::lock_guard lock(pagesMutex);
        return pages;
    };
    for (int i = 0; i < 600 && told().size() < 2; ++i)
        std::this_thread::sleep_for(100ms);
    EXPECT_THAT(told(),
                testing::ElementsAre("came " + std::to_string(session), "went " + std::to_string(session)));
}

TEST_F(WebListenerTest, PageOfASessionThatIsEndedIsLetGo) {
    start();
    const auto pPage = openPage(authorize(token()));
    ASSERT_THAT(pPage->socket.receive(), HasSubstr("hello"));
    sessions.end(sessions.sessions().at(0).id);
    EXPECT_THAT(pPage->socket.receiveWith("bye"), HasSubstr(R"("code":"revoked")"));
    EXPECT_EQ(pPage->socket.receive(), "");
}

TEST_F(WebListenerTest, AnswerInPiecesEndsWithItsSession) {
    start();
    HttpClient client = connected();
    const auto head = client.ask(request("GET", "/api/v1/stream?kinds=fid", bearer(token())));
    EXPECT_EQ(head.field("Transfer-Encoding"), "chunked");
    EXPECT_EQ(client.receiveBytes(12), "7\r\nline 1\n\r\n");
    sessions.end(sessions.sessions().at(0).id);
    std::string rest = client.receiveBytes(5);
    for (int i = 0; i < 2000 && !rest.ends_with("0\r\n\r\n"); ++i)
        rest += client.receiveBytes(1);
    EXPECT_TRUE(rest.ends_with("0\r\n\r\n")) << rest;
}

TEST_F(WebListenerTest, StreamComesByAWebSocketToo) {
    start();
    HttpClient client;
    WebSocketClient socket;
    client.connectTo("127.0.0.1", port.address().port);
    ASSERT_EQ(socket.open(client, "/api/v1/stream?kinds=fid", host()).status, 101);
    socket.send(authorize(token()));
    EXPECT_EQ(socket.receive(), "line 1\n");
    EXPECT_EQ(socket.receive(), "line 2\n");
    EXPECT_EQ(asker, "anna (web session 1 from 127.0.0.1)");
    sessions.end(sessions.sessions().at(0).id);
    EXPECT_THAT(socket.receiveWith("bye"), HasSubstr(R"("code":"end")"));
}

TEST_F(WebListenerTest, StreamByAWebSocketNeedsASession) {
    start();
    HttpClient client;
    WebSocketClient socket;
    client.connectTo("127.0.0.1", port.address().port);
    ASSERT_EQ(socket.open(client, "/api/v1/stream", host()).status, 101);
    socket.send(authorize("none"));
    EXPECT_EQ(socket.receive(),
              R"({"kind":"bye","code":"revoked","text":"a session is needed; mfctl panel opens one"})");
}

TEST_F(WebListenerTest, PagesAreToldThatTheHostStops) {
    start();
    const auto pPage = openPage(authorize(token()));
    ASSERT_THAT(pPage->socket.receive(), HasSubstr("hello"));
    stop();
    EXPECT_THAT(pPage->socket.receiveWith("bye"), HasSubstr(R"("code":"stopping")"));
}

TEST_F(WebListenerTest, ChannelThatHasNotSaidWhoItIsDoesNotHoldUpTheStop) {
    start();
    HttpClient client = connected();
    WebSocketClient silent;
    ASSERT_EQ(silent.open(client, "/api/v1/live", host()).status, 101);
    stop();
    EXPECT_EQ(silent.receive(), R"({"kind":"bye","code":"stopping","text":"the host is shutting down"})");
}

TEST_F(WebListenerTest, PageThatTakesNothingIsPassedOverAndToldAtOnceLater) {
    source.size = 1u << 20;
    start();
    const auto pSlow = openPage(authorize(token()));
    ASSERT_THAT(pSlow->socket.receive(), HasSubstr("hello"));
    // Nobody takes these, but each would be as long.
    const auto pQuick = openPage(authorize(token()));
    for (std::uint64_t version = 2; version <= 12; ++version) {
        source.version = version;
        ASSERT_NE(pQuick->socket.receiveWith(R"("news":)" + std::to_string(version)), "");
    }
    int chunks = 0;
    for (std::string text; text.find(R"("news":12)") == std::string::npos; text = pSlow->socket.receive())
        chunks += text.find("chunk") != std::string::npos ? 1 : 0;
    // What the system has buffered comes one by one.
    EXPECT_LT(chunks, 8);
}

TEST_F(WebListenerTest, WebSocketIsForTheChannelAndAloneOnItsConnection) {
    start();
    HttpClient other = connected();
    WebSocketClient socket;
    EXPECT_EQ(socket.open(other, "/api/v1/drivers", host()).status, 404);
    HttpClient second = connected();
    ASSERT_EQ(second.ask(request("GET", "/")).status, 200);
    EXPECT_EQ(socket.open(second, "/api/v1/live", host()).status, 400);
    HttpClient eager = connected();
    EXPECT_EQ(eager.ask(WebSocketClient::request("/api/v1/live", host()) + "more").status, 400);
}

// --- TLS

class WebListenerTestWithTls : public WebListenerTest {
protected:
    /// The output of the command, which has the certificate and the port in it.
    std::string execute(const std::string& command) {
        std::string text;
        FILE* const pPipe = ::popen((command + " 2>&1").c_str(), "r");
        char piece[4096];
        while (const auto count = std::fread(piece, 1, sizeof piece, pPipe))
            text.append(piece, count);
        ::pclose(pPipe);
        return text;
    }
    void SetUp() override {
        settings.certificateFile = directory.path("cert.pem");
        settings.keyFile = directory.path("key.pem");
        execute(
            "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj "
            "/CN=panel "
            "-addext subjectAltName=DNS:panel.example,IP:127.0.0.1 -keyout " +
            settings.keyFile + " -out " + settings.certificateFile);
        ASSERT_TRUE(std::filesystem::exists(settings.certificateFile));
        std::filesystem::permissions(settings.keyFile, std::filesystem::perms(0600));
    }
    std::string curl(const std::string& arguments) {
        return execute("curl -sS --max-time 60 --cacert " + settings.certificateFile + " " + arguments +
                       " https://127.0.0.1:" + std::to_string(port.address().port));
    }

    const TemporaryDirectory directory;
};

TEST_F(WebListenerTestWithTls, PageAndApiAreServedEncrypted) {
    start();
    EXPECT_EQ(curl(""), findPageFile("/")->bytes);
    const std::string base = "https://127.0.0.1:" + std::to_string(port.address().port);
    EXPECT_EQ(execute("curl -sS --max-time 60 --cacert " + settings.certificateFile +
                      " -H 'Authorization: Bearer " + token() + "' " + base + "/api/v1/drivers"),
              "GET /api/v1/drivers anna operate ");
    // By the name of the certificate, too.
    const std::string port_ = std::to_string(port.address().port);
    EXPECT_EQ(
        execute("curl -sS --max-time 60 --cacert " + settings.certificateFile +
                " --resolve panel.example:" + port_ + ":127.0.0.1 https:" + "//panel.example:" + port_ + "/"),
        findPageFile("/")->bytes);
}

TEST_F(WebListenerTestWithTls, ClientWithoutTlsGetsNothing) {
    start();
    EXPECT_EQ(ask("GET", "/").status, 0);
    EXPECT_THAT(curl("--tls-max 1.1"), HasSubstr("curl: ("));
}

TEST_F(WebListenerTestWithTls, ConnectionThatSaysNothingEnds) {
    limits.handshake = 1s;
    start();
    HttpClient client = connected();
    EXPECT_TRUE(client.isAtEnd());
}

TEST_F(WebListenerTestWithTls, KeyOfAnotherCertificateIsRefused) {
    execute("openssl genpkey -algorithm ed25519 -out " + settings.keyFile);
    EXPECT_THROW(start(), std::exception);
}

}  // namespace
