#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>

/// The other end of every queue on a host of one thread: what receive() gives, one after the other, and what
/// happens when there is no more. One for the program.
struct MessageFeed {
    static MessageFeed& instance();

    /// What stands in the queue; nothing is a receive that finds it empty.
    std::deque<std::optional<std::string>> messages;
    /// Called when a receive finds nothing and nothing will come any more.
    std::function<void()> onEnd;
};
