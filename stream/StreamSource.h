#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "StreamLayout.h"
#include "StreamRecord.h"
#include "UniqueFd.h"

namespace stream {

class StreamRing;

/// The rings as readers see them: those of this process, of another one, or what a dead one left. Outlives
/// its readers; any thread.
class StreamSource {
public:
    /// The rings of this process, which outlive it.
    explicit StreamSource(const StreamRing& ring);
    /// A file of rings. While a process writes it, it is looked at as it changes; else what there is of it is
    /// taken into memory, also where pages of it are damaged. Null, and why, when it is no such file.
    static std::unique_ptr<StreamSource> open(const std::string& path, std::string& error);
    /// The same of a file's bytes, as a dead process left them.
    static std::unique_ptr<StreamSource> ofBytes(std::vector<std::uint64_t> words, std::string& error);
    /// The same of bytes that outlive it, and stay as they are as long as it lives.
    static std::unique_ptr<StreamSource> ofMemory(std::span<std::uint64_t> words, std::string& error);
    /// Whether a process holds the lock of the file's writer.
    static bool hasWriter(const std::string& path);
    ~StreamSource();
    StreamSource(const StreamSource&) = delete;
    StreamSource& operator=(const StreamSource&) = delete;

    const std::string& instance() const { return m_instance; }
    Time started() const { return m_started; }
    std::size_t size(ERing ring) const { return m_sizes[static_cast<std::size_t>(ring)]; }
    /// Something may still come. Of another process's rings: its writer lives, as far as is known by the
    /// last look.
    bool isLive() const { return m_isLive; }
    /// Looks whether the process that writes a file still does, which it does not where another file has
    /// taken its place. From then on isLive() says so.
    bool lookForWriter();

    /// Where the next record goes.
    std::uint64_t head(ERing ring) const;
    /// The last number that was given; 0 where that is not known.
    std::uint64_t lastNumber() const;
    /// Reads the record at a position: false unless it is there, whole, and was not lapped meanwhile. The
    /// size is that of its place.
    bool read(ERing ring, std::uint64_t position, StreamRecord& record, std::size_t& size) const;
    /// Whether a record may be there, without reading it.
    bool mayBe(ERing ring, std::uint64_t position) const;

private:
    StreamSource() = default;

    /// Takes the constants from the memory; false, and why, when they fit neither the file nor each other.
    bool adopt(std::string& error);
    /// Finds the heads again where the header is lost.
    void findHeads();
    const StreamHeader& header() const { return *reinterpret_cast<const StreamHeader*>(m_pBase); }
    std::uint64_t word(ERing ring, std::size_t index) const;
    bool readWhole(ERing ring, std::uint64_t position, StreamRecord& record, std::size_t& size) const;

    std::string m_instance;
    Time m_started;
    std::array<std::size_t, s_rings> m_sizes{};
    std::uint32_t m_salt = 0;
    bool m_isLive = false;
    bool m_isDead = false;  ///< was so when it was opened
    std::string m_path;
    dev_t m_device = 0;
    ino_t m_inode = 0;

    std::vector<std::uint64_t> m_memory;  ///< of a file that was dead
    std::byte* m_pMapped = nullptr;       ///< of another process's
    std::byte* m_pBase = nullptr;
    std::size_t m_fileSize = 0;
    std::array<std::uint64_t*, s_rings> m_pWords{};
    /// Of one that was dead.
    std::array<std::uint64_t, s_rings> m_heads{};
    std::uint64_t m_lastNumber = 0;
};

}  // namespace stream
