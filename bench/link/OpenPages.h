#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <list>
#include <string>
#include <thread>

#include "HttpClient.h"
#include "WebSocketClient.h"

/// Open pages of a host's web panel, each on a thread of its own: they take what a page is told, and show
/// none of it. Made and ended by one thread.
class OpenPages {
public:
    /// Writes the file for the host's --web-tokens into the directory; its path.
    static std::string makeTokens(const std::filesystem::path& directory);

    /// At the port that the host has named in its log. Returns when each has been told everything once;
    /// throws where one is not.
    OpenPages(const std::string& log, int pages);
    ~OpenPages();
    OpenPages(const OpenPages&) = delete;
    OpenPages& operator=(const OpenPages&) = delete;

    /// How many messages with news all of them had so far. Throws where the host has let one go.
    std::uint64_t told() const;

private:
    struct Page {
        HttpClient client;
        WebSocketClient socket;
        std::thread thread;
    };

    void follow(Page& page);

    std::atomic<bool> m_isOver = false;
    std::atomic<bool> m_hasLost = false;
    std::atomic<std::uint64_t> m_told = 0;
    std::list<Page> m_pages;
};
