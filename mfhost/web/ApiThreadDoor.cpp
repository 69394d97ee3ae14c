#include "ApiThreadDoor.h"

#include <utility>

ApiThreadDoor::ApiThreadDoor(std::function<void(Work)> post) : m_post(std::move(post)) {}

void ApiThreadDoor::post(Work work) {
    const std::lock_guard lock(m_mutex);
    if (m_post)
        m_post(std::move(work));
}

void ApiThreadDoor::close() {
    const std::lock_guard lock(m_mutex);
    m_post = nullptr;
}
