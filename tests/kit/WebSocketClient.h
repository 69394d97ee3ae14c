#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "HttpClient.h"

/// A page's end of a WebSocket: texts in both directions, without compression. One thread. What does not come
/// before the hang guard is as if the connection had ended.
class WebSocketClient {
public:
    /// The request that asks for one; fields: further lines of its head, each with its end.
    static std::string request(const std::string& target, const std::string& host,
                               const std::string& fields = {}) {
        return "GET " + target + " HTTP/1.1\r\nHost: " + host +
               "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
               "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n" +
               fields + "\r\n";
    }

    /// The client is connected; the status of the answer, 101 for a WebSocket.
    HttpClient::Answer open(HttpClient& client, const std::string& target, const std::string& host,
                            const std::string& fields = {}) {
        m_pClient = &client;
        client.send(request(target, host, fields));
        // An answer of 101 has no length.
        return client.receive();
    }

    void send(const std::string& text) {
        std::string frame = "\x81";
        // The mask is zero: the text is as it is.
        if (text.size() < 126) {
            frame += static_cast<char>(0x80u | text.size());
        } else {
            frame += static_cast<char>(0xfe);
            frame += static_cast<char>(text.size() >> 8);
            frame += static_cast<char>(text.size() & 0xffu);
        }
        m_pClient->send(frame + std::string(4, '\0') + text);
    }

    /// The next text; empty when the other end has closed.
    std::string receive() {
        std::string text;
        while (true) {
            const std::string head = m_pClient->receiveBytes(2);
            if (head.size() < 2)
                return {};
            const unsigned code = static_cast<unsigned char>(head[0]) & 0x0fu;
            std::size_t size = static_cast<unsigned char>(head[1]) & 0x7fu;
            if (size >= 126) {
                const std::string longer = m_pClient->receiveBytes(size == 126 ? 2 : 8);
                size = 0;
                for (const char byte : longer)
                    size = size << 8 | static_cast<unsigned char>(byte);
            }
            const std::string piece = m_pClient->receiveBytes(size);
            if (code == 8)
                return {};
            if (code > 2)
                continue;
            text += piece;
            if ((static_cast<unsigned char>(head[0]) & 0x80u) != 0)
                return text;
        }
    }
    /// The next one that has the text; empty when none comes.
    std::string receiveWith(const std::string& part) {
        while (true) {
            std::string text = receive();
            if (text.empty() || text.find(part) != std::string::npos)
                return text;
        }
    }

private:
    HttpClient* m_pClient = nullptr;
};
