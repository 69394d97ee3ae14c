#pragma once

#include <cstddef>
#include <memory>

namespace sal {

struct MappedRange;

/// A queue's file in memory. A peer may cut the file short, and then the kernel answers an access with
/// SIGBUS: inside a mapping of ours the handler puts an empty page there and remembers the damage; every
/// other fault goes to the handler that was there before. Not mapped in forked children.
class QueueMapping {
public:
    /// Null with errno set when it cannot be mapped.
    static std::unique_ptr<QueueMapping> map(int descriptor, std::size_t size);
    ~QueueMapping();
    QueueMapping(const QueueMapping&) = delete;
    QueueMapping& operator=(const QueueMapping&) = delete;

    std::byte* base() const { return m_pBase; }
    /// Whether a part of the file was missing.
    bool faulted() const;

private:
    QueueMapping(std::byte* pBase, std::size_t size);

    std::byte* m_pBase;
    std::size_t m_size;
    MappedRange* m_pRange;
};

}  // namespace sal
