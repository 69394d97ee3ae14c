#include "NameLookup.h"

/// What the library's thread reads and writes.
struct NameLookup::Request {
    explicit Request(const std::string& asked) : name(asked) {
        hints.ai_socktype = SOCK_STREAM;
        block.ar_name = name.c_str();
        block.ar_request = &hints;
    }
    ~Request() {
        if (block.ar_result)
            ::freeaddrinfo(block.ar_result);
    }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    const std::string name;
    addrinfo hints{};
    gaicb block{};
};

NameLookup::NameLookup(const std::string& name) : m_pRequest(std::make_unique<Request>(name)) {
    gaicb* blocks[] = {&m_pRequest->block};
    m_error = ::getaddrinfo_a(GAI_NOWAIT, blocks, 1, nullptr);
}

NameLookup::~NameLookup() {
    // One that a thread is at cannot be taken back: the thread writes into it later.
    if (m_error == 0 && ::gai_cancel(&m_pRequest->block) == EAI_NOTCANCELED)
        static_cast<void>(m_pRequest.release());
}

NameLookup::EState NameLookup::state() const {
    const int result = m_error != 0 ? m_error : ::gai_error(&m_pRequest->block);
    return result == 0 ? EState::Found : result == EAI_INPROGRESS ? EState::UnderWay : EState::Failed;
}

std::string NameLookup::fault() const {
    return ::gai_strerror(m_error != 0 ? m_error : ::gai_error(&m_pRequest->block));
}
