#include "HttpReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using EState = HttpReader::EState;

class HttpReaderTest : public testing::Test {
protected:
    /// Gives it the bytes in pieces of that size, as a session does; the requests.
    std::vector<HttpRequest> read(const std::string& bytes, std::size_t piece = 1 << 20) {
        std::vector<HttpRequest> requests;
        std::string input;
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            input += bytes.substr(at, piece);
            while (true) {
                input.erase(0, sut.read(input));
                if (sut.state() != EState::Complete)
                    break;
                requests.push_back(sut.take());
            }
        }
        return requests;
    }
    std::string faultOf(const std::string& bytes) {
        read(bytes);
        return sut.state() == EState::Failed ? std::to_string(sut.fault().status) + " " + sut.fault().body
                                             : "";
    }

    const HttpLimits limits;
    HttpReader sut{limits};
};

const std::string s_post =
    "POST /api/v1/fid?x=%20 HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
    "Content-Length: 11\r\n\r\n{\"fid\":\"A\"}";
const std::string s_chunked =
    "PUT /a HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n4;name=\"v\"\r\n{\"a\"\r\n3\r\n:1}\r\n0\r\nT: "
    "x\r\n\r\n";

TEST_F(HttpReaderTest, ReadsWhatARequestSays) {
    const auto requests = read(s_post);
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "POST");
    EXPECT_EQ(requests[0].target, "/api/v1/fid?x=%20");
    EXPECT_EQ(requests[0].contentType, "application/json");
    EXPECT_EQ(requests[0].body, "{\"fid\":\"A\"}");
    EXPECT_TRUE(requests[0].isKeptAlive);
    EXPECT_FALSE(requests[0].isVersion10);
    EXPECT_FALSE(requests[0].isSafe());
    EXPECT_EQ(sut.state(), EState::Between);
}

TEST_F(HttpReaderTest, ReadsWhatABrowserSaysOfItself) {
    const auto requests = read(
        "GET /live HTTP/1.1\r\nHost: localhost:8080\r\nOrigin: a\r\nAuthorization: Bearer b\r\nCookie: "
        "c=d\r\n"
        "If-None-Match: W/\"e\"\r\nAccept-Encoding: deflate, gzip\r\nConnection: keep-alive, Upgrade\r\n"
        "Upgrade: websocket\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: f\r\n\r\n");
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].host, "localhost:8080");
    EXPECT_EQ(requests[0].origin, "a");
    EXPECT_EQ(requests[0].authorization, "Bearer b");
    EXPECT_EQ(requests[0].cookie, "c=d");
    EXPECT_EQ(requests[0].knownTag, "W/\"e\"");
    EXPECT_TRUE(requests[0].takesGzip);
    EXPECT_TRUE(requests[0].isWebSocket);
    EXPECT_EQ(requests[0].webSocketKey, "f");
}

TEST_F(HttpReaderTest, WebSocketIsAskedForByAllOfItsFields) {
    const std::vector<std::string> fields{"Connection: upgrade\r\n", "Upgrade: websocket\r\n",
                                          "Sec-WebSocket-Version: 13\r\n",
                                          "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"};
    std::string whole = "GET / HTTP/1.1\r\n";
    for (const std::string& field : fields)
        whole += field;
    EXPECT_TRUE(read(whole + "\r\n").at(0).isWebSocket);
    for (std::size_t missing = 0; missing < fields.size(); ++missing) {
        std::string head = "GET / HTTP/1.1\r\n";
        for (std::size_t i = 0; i < fields.size(); ++i)
            head += i == missing ? "" : fields[i];
        EXPECT_FALSE(read(head + "\r\n").at(0).isWebSocket) << fields[missing];
    }
}

TEST_F(HttpReaderTest, GzipIsTakenUnlessItIsRefused) {
    const auto takes = [this](const std::string& accepted) {
        return read("GET / HTTP/1.1\r\nAccept-Encoding: " + accepted + "\r\n\r\n").at(0).takesGzip;
    };
    EXPECT_TRUE(takes("GZIP;q=0.5"));
    EXPECT_FALSE(takes("gzip;q=0"));
    EXPECT_FALSE(takes("gzip;q=0.000, deflate"));
    EXPECT_FALSE(takes("xgzip"));
    EXPECT_FALSE(takes(""));
}

TEST_F(HttpReaderTest, HostIsNamedOnce) {
    EXPECT_EQ(faultOf("GET / HTTP/1.1\r\nHost: a\r\nHost: b\r\n\r\n").substr(0, 4), "400 ");
}

TEST_F(HttpReaderTest, WhoAsksIsSaidOnce) {
    for (const std::string field : {"Origin: http:", "Authorization: Bearer x"})
        EXPECT_THAT(faultOf("GET / HTTP/1.1\r\n" + field + "\r\n" + field + "\r\n\r\n"),
                    testing::HasSubstr("the request says more than once who asks"))
            << field;
}

TEST_F(HttpReaderTest, ReadsTheSameHoweverItIsCut) {
    const std::string bytes = s_post + s_chunked + "GET / HTTP/1.1\r\n\r\n" + s_post;
    for (std::size_t piece = 1; piece <= bytes.size(); ++piece) {
        const auto requests = read(bytes, piece);
        ASSERT_EQ(requests.size(), 4u) << piece;
        EXPECT_EQ(requests[0].body, "{\"fid\":\"A\"}");
        EXPECT_EQ(requests[1].body, "{\"a\":1}");
        EXPECT_EQ(requests[2].method, "GET");
        EXPECT_EQ(requests[3].body, "{\"fid\":\"A\"}");
    }
}

TEST_F(HttpReaderTest, BodyOfNoChunksEndsHoweverItIsCut) {
    const std::string bytes = "PUT /a HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n";
    for (std::size_t piece = 1; piece <= bytes.size(); ++piece) {
        const auto requests = read(bytes, piece);
        ASSERT_EQ(requests.size(), 1u) << piece;
        EXPECT_EQ(requests[0].body, "");
    }
}

TEST_F(HttpReaderTest, WaitsForTheEndOfTheLastChunk) {
    const std::string begin = "POST /a HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n";
    ASSERT_EQ(sut.read(begin), begin.size());
    for (const char* text : {"0;\r\n", "0;\r\n", "0;\r\n\r", "0;\r\n\r"}) {
        EXPECT_EQ(sut.read(text), 0u);
        EXPECT_EQ(sut.state(), EState::Body);
    }
}

TEST_F(HttpReaderTest, SaysHowFarARequestIs) {
    EXPECT_EQ(sut.state(), EState::Between);
    read("GET / HT");
    EXPECT_EQ(sut.state(), EState::Header);
    HttpReader other(limits);
    const std::string header = "POST / HTTP/1.1\r\nContent-Length: 2\r\n\r\n";
    EXPECT_EQ(other.read(header), header.size());
    EXPECT_EQ(other.state(), EState::Body);
    EXPECT_FALSE(other.expectsContinue());
}

TEST_F(HttpReaderTest, TellsWhoWaitsToBeToldToSendTheBody) {
    read("POST / HTTP/1.1\r\nContent-Length: 2\r\nExpect: 100-Continue\r\n\r\n");
    EXPECT_TRUE(sut.expectsContinue());
    HttpReader old(limits);
    old.read("POST / HTTP/1.0\r\nContent-Length: 2\r\nExpect: 100-continue\r\n\r\n");
    EXPECT_FALSE(old.expectsContinue());
}

TEST_F(HttpReaderTest, ConnectionGoesOnUnlessItIsSaidOtherwise) {
    EXPECT_TRUE(read("GET / HTTP/1.1\r\n\r\n").at(0).isKeptAlive);
    EXPECT_FALSE(read("GET / HTTP/1.1\r\nConnection: close\r\n\r\n").at(0).isKeptAlive);
    EXPECT_FALSE(read("GET / HTTP/1.0\r\n\r\n").at(0).isKeptAlive);
    EXPECT_TRUE(read("GET / HTTP/1.0\r\nConnection: keep-alive\r\n\r\n").at(0).isKeptAlive);
}

TEST_F(HttpReaderTest, EmptyLinesBetweenRequestsAreNone) {
    EXPECT_EQ(read("\r\n\r\nGET /1 HTTP/1.1\r\n\r\n\r\nGET /2 HTTP/1.1\r\n\r\n\n").size(), 2u);
    EXPECT_EQ(sut.state(), EState::Between);
}

TEST_F(HttpReaderTest, LimitsAreTakenToTheirLastByte) {
    const std::string begin =
        "POST / HTTP/1.1\r\nContent-Length: " + std::to_string(limits.body) + "\r\n\r\n";
    EXPECT_EQ(read(begin + std::string(limits.body, 'x')).size(), 1u);
    EXPECT_EQ(read("GET /" + std::string(limits.target - 1, 'x') + " HTTP/1.1\r\n\r\n").size(), 1u);
    const std::string line = "GET / HTTP/1.1\r\nX: ";
    EXPECT_EQ(read(line + std::string(limits.header - line.size() - 4, 'x') + "\r\n\r\n", 100).size(), 1u);
}

TEST_F(HttpReaderTest, TooLongATargetIsRefused) {
    EXPECT_EQ(
        faultOf("GET /" + std::string(limits.target, 'x') + " HTTP/1.1\r\n\r\n"),
        R"(413 {"error":{"code":"too-large","text":"the request's target has more than 8192 bytes","nearest":[]}})");
}

TEST_F(HttpReaderTest, TooLongAHeaderIsRefusedBeforeItsEnd) {
    EXPECT_EQ(
        faultOf("GET / HTTP/1.1\r\nX: " + std::string(limits.header, 'x')),
        R"(413 {"error":{"code":"too-large","text":"the request's first lines have more than 16384 bytes","nearest":[]}})");
}

TEST_F(HttpReaderTest, TooManyLinesAreRefusedHoweverTheyCome) {
    std::string lines = "GET / HTTP/1.1\r\n";
    while (lines.size() <= limits.header)
        lines += "X: y\r\n";
    for (const std::size_t piece : {std::size_t(1), std::size_t(7), std::size_t(8192), lines.size()}) {
        HttpReader other(limits);
        std::string input;
        std::size_t at = 0;
        for (; at < lines.size() && other.state() != EState::Failed; at += piece) {
            input += lines.substr(at, piece);
            input.erase(0, other.read(input));
        }
        EXPECT_EQ(other.state(), EState::Failed) << piece;
        EXPECT_EQ(other.fault().status, 413u);
    }
    EXPECT_NE(faultOf(lines + "\r\n"), "");
}

TEST_F(HttpReaderTest, TooLongABodyIsRefusedByItsLength) {
    EXPECT_EQ(
        faultOf("POST / HTTP/1.1\r\nContent-Length: 65537\r\n\r\n"),
        R"(413 {"error":{"code":"too-large","text":"the request's body has more than 65536 bytes","nearest":[]}})");
}

TEST_F(HttpReaderTest, TooLongAChunkedBodyIsRefused) {
    EXPECT_EQ(
        faultOf("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n10001\r\n" + std::string(0x10001, 'x')),
        R"(413 {"error":{"code":"too-large","text":"the request's body has more than 65536 bytes","nearest":[]}})");
}

TEST_F(HttpReaderTest, EndlessLineOfAChunkIsRefused) {
    EXPECT_NE(
        faultOf("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n1;" + std::string(limits.header, 'x')),
        "");
}

TEST_F(HttpReaderTest, EndlessTrailerIsRefused) {
    EXPECT_NE(faultOf("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nX: " +
                      std::string(limits.header, 'x')),
              "");
}

class HttpReaderRefuses : public testing::TestWithParam<const char*> {};

TEST_P(HttpReaderRefuses, WhatIsNoRequest) {
    const HttpLimits limits;
    const std::string bytes = GetParam();
    for (const std::size_t piece : {bytes.size(), std::size_t(1)}) {
        HttpReader sut(limits);
        std::string input;
        for (std::size_t at = 0; at < bytes.size() && sut.state() != EState::Failed; at += piece) {
            input += bytes.substr(at, piece);
            input.erase(0, sut.read(input));
        }
        ASSERT_EQ(sut.state(), EState::Failed);
        EXPECT_EQ(sut.fault().status, 400u);
        EXPECT_TRUE(sut.fault().body.starts_with(R"({"error":{"code":"request-invalid","text":")"))
            << sut.fault().body;
        EXPECT_EQ(sut.read("GET / HTTP/1.1\r\n\r\n"), 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(
    HttpReader, HttpReaderRefuses,
    testing::Values("hello\r\n\r\n", "GET\r\n\r\n", "GET /\r\n\r\n", "GET / HTTP/2.0\r\n\r\n",
                    "GET / HTTP/1.2\r\n\r\n", "GET / FTP/1.1\r\n\r\n", "GET /\x01 HTTP/1.1\r\n\r\n",
                    "GET / HTTP/1.1\r\nno colon\r\n\r\n", "GET / HTTP/1.1\r\na b: c\r\n\r\n",
                    "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", "POST / HTTP/1.1\r\nContent-Length: x\r\n\r\n",
                    "POST / HTTP/1.1\r\nContent-Length: -1\r\n\r\n",
                    "POST / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n",
                    "POST / HTTP/1.1\r\nContent-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\n",
                    "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\nContent-Length: 1\r\n\r\n",
                    "POST / HTTP/1.1\r\nTransfer-Encoding: gzip\r\n\r\n",
                    "POST / HTTP/1.1\r\nTransfer-Encoding: gzip, chunked\r\n\r\n",
                    "POST / HTTP/1.1\r\nTransfer-Encoding: gzip\r\nTransfer-Encoding: chunked\r\n\r\n",
                    "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nxyz\r\n\r\n"));

}  // namespace
