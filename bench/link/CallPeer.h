#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

/// One way of asking a process for something and waiting for the answer: by a program that is started for
/// each call, as a script does it, and over a connection that is kept open. The processes that answer are
/// made with the object and end with it. Used by one thread, in a process of its own, since a connection may
/// have threads.
class CallPeer {
public:
    virtual ~CallPeer() = default;
    /// What makes one call, with its arguments.
    virtual std::vector<std::string> program() const = 0;
    /// Whether it has printed an answer.
    virtual bool isAnswer(const std::string& printed) const = 0;

    /// Once.
    virtual void open() = 0;
    /// One call over the open connection. Throws when there is no answer or a wrong one.
    virtual void ask() = 0;
};

struct CallPeerKind {
    std::string program;     ///< what the results call it
    std::string connection;  ///< the same of the connection that is kept open
    std::unique_ptr<CallPeer> (*make)(const std::filesystem::path& directory);
};
