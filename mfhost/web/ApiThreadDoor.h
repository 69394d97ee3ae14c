#pragma once

#include <functional>
#include <mutex>

/// How other threads get work onto the API thread, for as long as there is one: answers may come when the
/// server is long gone. Shared by the server and the answers that are still to come; any thread.
class ApiThreadDoor {
public:
    using Work = std::function<void()>;

    /// post hands work to the thread.
    explicit ApiThreadDoor(std::function<void(Work)> post);

    /// Nothing happens once it is closed.
    void post(Work work);
    /// No post() is under way then, and none comes any more.
    void close();

private:
    std::mutex m_mutex;
    std::function<void(Work)> m_post;
};
