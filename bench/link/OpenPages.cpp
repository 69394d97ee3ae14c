#include "OpenPages.h"

#include <sys/socket.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

const std::string g_token(40, 'p');

}  // namespace

std::string OpenPages::makeTokens(const fs::path& directory) {
    const fs::path file = directory / "tokens";
    std::ofstream(file) << "view " << g_token << " page\n";
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
    return file;
}

OpenPages::OpenPages(const std::string& log, int pages) {
    const std::string mark = "the web panel is at http://127.0.0.1:";
    const auto place = log.find(mark);
    if (place == std::string::npos)
        throw std::runtime_error("the host has no web panel: " + log);
    const int port = std::atoi(log.c_str() + place + mark.size());
    for (int page = 0; page < pages; ++page) {
        Page& added = m_pages.emplace_back();
        HttpClient& client = added.client;
        WebSocketClient& socket = added.socket;
        const std::string host = "127.0.0.1:" + std::to_string(port);
        const bool isOpen = client.connectTo("127.0.0.1", static_cast<std::uint16_t>(port)) &&
                            socket.open(client, "/api/v1/live", host).status == 101;
        if (isOpen)
            socket.send(R"({"authorize":")" + g_token + R"(","page":"values"})");
        if (!isOpen || socket.receiveWith(R"("kind":"chunk")").empty())
            throw std::runtime_error("a page of the web panel does not open");
    }
    for (Page& page : m_pages)
        page.thread = std::thread([this, &page] { follow(page); });
}

OpenPages::~OpenPages() {
    m_isOver = true;
    for (Page& page : m_pages) {
        ::shutdown(page.client.fd(), SHUT_RDWR);
        if (page.thread.joinable())
            page.thread.join();
    }
}

std::uint64_t OpenPages::told() const {
    if (m_hasLost)
        throw std::runtime_error("the host has let a page go");
    return m_told;
}

void OpenPages::follow(Page& page) {
    // Each message goes whole into the client's memory, as it does in a browser.
    for (std::string text = page.socket.receive(); !text.empty(); text = page.socket.receive()) {
        if (text.find(R"("kind":"chunk")") < 64)
            ++m_told;
    }
    m_hasLost = !m_isOver;
}
