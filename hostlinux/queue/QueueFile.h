#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "QueueDirectory.h"
#include "QueueLayout.h"

namespace sal {

/// The file of a queue and the kernel's locks on it, which die with their process:
/// - everyone attached holds the "attached" lock shared; to take a name over one needs it alone;
/// - creator and receiver hold theirs exclusively, so anyone can see whether they live;
/// - everyone attached holds the lock of a ticket, a number that no other process or handle gets, and signs
/// with it. The locks belong to the open file, so each object opens its own. Owned by MessageQueue; release()
/// apart, any thread may ask.
class QueueFile {
public:
    enum class EResult { Done, Busy, Failed };

    /// A new file that has no name yet, with memory for the header, the tables and the first chunk.
    static std::unique_ptr<QueueFile> make(const std::string& queue, const QueueGeometry& geometry,
                                           std::string& error);

    /// An existing file whose creator lives. isLate says that a failure is none of the queue's: the queue
    /// that this process was started for is gone, or has been made anew for another.
    static std::unique_ptr<QueueFile> attach(const std::string& queue, QueueGeometry& geometry,
                                             std::string& error, bool& isLate);

    /// Removes the files of that name to which no process is attached any more, those that a dead host left
    /// included. Waits up to 50 ms for that.
    static EResult removeStale(const std::string& queue, std::string& error);
    /// Takes the name from the processes that still hold it, unless its creator lives: the file is marked as
    /// broken and removed. Done when the name is free now.
    static EResult retire(const std::string& queue, std::string& error);
    /// Gives a file a name in the directory and takes it away again. False, and why, when that is not
    /// possible.
    static bool tryDirectory(std::string& error);

    /// Whether no file has the name of any of these queues. False also when that cannot be seen.
    static bool areFree(const std::vector<std::string>& queues);
    /// Removes from a directory the queues that no process is attached to any more, and continues readers
    /// that were stopped when their host died.
    static void removeFree(const QueueDirectory& directory);
    /// Removes all queues from a directory.
    static void removeAll(const QueueDirectory& directory);

    ~QueueFile();
    QueueFile(const QueueFile&) = delete;
    QueueFile& operator=(const QueueFile&) = delete;

    /// Removes the name when no other handle is attached any more, as at the end of this object, which is
    /// good for nothing else from then on. True when it leads to this file no longer.
    bool removeName();

    /// Gives the file its name. Busy when another file has it.
    EResult publish(std::string& error);

    /// Takes the lock of a ticket; false when another handle has it.
    bool takeTicket(std::uint32_t ticket);
    /// Whether another object holds that ticket.
    bool ticketHeld(std::uint32_t ticket) const;

    bool takeReceiver();
    bool receiverLives() const;  ///< another than this object
    bool creatorLives() const;   ///< another than this object
    unsigned int holders() const;
    bool hasSize(std::size_t size) const;

    /// Memory for a part of the file; false with errno set when there is none.
    bool allocate(std::size_t offset, std::size_t size) const;
    void punch(std::size_t offset, std::size_t size) const;

    /// The file opened anew: it does not keep the name in use and may outlive this object.
    base::UniqueFd reopen() const;

    /// Waits on a descriptor from reopen() until the creator's lock is free. False when the kernel refuses.
    static bool waitForCreatorEnd(int descriptor);

    int descriptor() const { return m_file.get(); }

    /// In a forked child: lets go without touching what belongs to the parent.
    void abandon();

private:
    QueueFile(QueueDirectory directory, std::string name, base::UniqueFd file)
        : m_directory(std::move(directory)), m_name(std::move(name)), m_file(std::move(file)) {}

    static EResult removeStaleIn(const QueueDirectory& directory, const std::string& name,
                                 std::string& error);
    static EResult retireIn(const QueueDirectory& directory, const std::string& name, std::string& error);
    /// The call for the directory, then for those that dead hosts left where it is such a one; up to the
    /// first that is not done.
    static EResult forAll(const QueueDirectory& directory,
                          const std::function<EResult(const QueueDirectory&)>& call);
    void release();

    QueueDirectory m_directory;
    std::string m_name;
    base::UniqueFd m_file;
    bool m_isPeers = false;  ///< made by another, and opened
};

}  // namespace sal
