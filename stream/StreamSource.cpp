#include "StreamSource.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

#include "Crc32c.h"
#include "Printable.h"
#include "StreamBody.h"
#include "StreamRing.h"

namespace stream {
namespace {

constexpr std::size_t s_largestFile = std::size_t{4} << 30;
/// No ring comes so far.
constexpr std::uint64_t s_farthest = std::uint64_t{1} << 60;

bool isWhole(const StreamConstants& constants) {
    std::array<std::uint64_t, sizeof(StreamConstants) / sizeof(std::uint64_t)> words{};
    std::memcpy(words.data(), &constants, sizeof constants);
    return constants.magic == StreamConstants::s_magic &&
           constants.check == crc32c(0, words.data(), words.size() - 1);
}

/// As much of the file as there is, the rest zeros.
bool readAll(int descriptor, std::vector<std::uint64_t>& words) {
    char* const pBytes = reinterpret_cast<char*>(words.data());
    const std::size_t size = words.size() * sizeof(std::uint64_t);
    std::size_t at = 0;
    while (at < size) {
        const ssize_t count = ::pread(descriptor, pBytes + at, size - at, static_cast<off_t>(at));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        if (count == 0)
            break;
        at += static_cast<std::size_t>(count);
    }
    return true;
}

}  // namespace

StreamSource::StreamSource(const StreamRing& ring)
    : m_isLive(true), m_pBase(ring.base()), m_fileSize(ring.fileSize()) {
    std::string impossible;
    adopt(impossible);
}

std::unique_ptr<StreamSource> StreamSource::open(const std::string& path, std::string& error) {
    const auto refuse = [&](const std::string& why) {
        error = base::quoted(path) + " " + why;
        return nullptr;
    };
    const base::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file)
        return refuse(std::string("cannot be opened: ") + std::strerror(errno));
    struct stat status {};
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return refuse("is no file of a stream: it is no regular file");
    const auto size = static_cast<std::size_t>(status.st_size);
    if (size < s_page || size > s_largestFile || size % s_page != 0)
        return refuse("is no file of a stream: it has " + std::to_string(size) + " bytes");

    std::unique_ptr<StreamSource> pSource(new StreamSource);
    pSource->m_path = path;
    pSource->m_device = status.st_dev;
    pSource->m_inode = status.st_ino;
    pSource->m_fileSize = size;
    pSource->m_isLive = hasWriter(path);
    if (pSource->m_isLive) {
        void* pMapped = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, file.get(), 0);
        if (pMapped == MAP_FAILED)
            return refuse(std::string("cannot be mapped: ") + std::strerror(errno));
        pSource->m_pMapped = static_cast<std::byte*>(pMapped);
        pSource->m_pBase = pSource->m_pMapped;
    } else {
        pSource->m_isDead = true;
        pSource->m_memory.resize(size / sizeof(std::uint64_t));
        if (!readAll(file.get(), pSource->m_memory))
            return refuse(std::string("cannot be read: ") + std::strerror(errno));
        pSource->m_pBase = reinterpret_cast<std::byte*>(pSource->m_memory.data());
    }
    std::string why;
    if (!pSource->adopt(why))
        return refuse("is no file of a stream: " + why);
    return pSource;
}

std::unique_ptr<StreamSource> StreamSource::ofBytes(std::vector<std::uint64_t> words, std::string& error) {
    auto pSource = ofMemory(words, error);
    // What is moved stays where it is.
    if (pSource)
        pSource->m_memory = std::move(words);
    return pSource;
}

std::unique_ptr<StreamSource> StreamSource::ofMemory(std::span<std::uint64_t> words, std::string& error) {
    if (words.size() < s_page / sizeof(std::uint64_t)) {
        error = "a stream has at least 4096 bytes";
        return nullptr;
    }
    std::unique_ptr<StreamSource> pSource(new StreamSource);
    pSource->m_isDead = true;
    pSource->m_fileSize = words.size_bytes();
    pSource->m_pBase = reinterpret_cast<std::byte*>(words.data());
    return pSource->adopt(error) ? std::move(pSource) : nullptr;
}

bool StreamSource::hasWriter(const std::string& path) {
    const base::UniqueFd file(
        ::open((path + ".lock").c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file)
        return false;
    struct flock lock {};
    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    return ::fcntl(file.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

StreamSource::~StreamSource() {
    if (m_pMapped)
        ::munmap(m_pMapped, m_fileSize);
}

bool StreamSource::adopt(std::string& error) {
    StreamConstants constants;
    std::memcpy(&constants, m_pBase, sizeof constants);
    const bool hasHeader = isWhole(constants);
    if (!hasHeader && m_fileSize >= 2 * s_page)
        std::memcpy(&constants, m_pBase + m_fileSize - s_page, sizeof constants);
    if (!isWhole(constants)) {
        error = "neither its first nor its last page says so";
        return false;
    }
    if (constants.version != StreamConstants::s_version) {
        error = "it is of version " + std::to_string(constants.version) + ", and only 1 is known";
        return false;
    }
    for (std::size_t ring = 0; ring < s_rings; ++ring) {
        m_sizes[ring] = constants.sizes[ring];
        if (m_sizes[ring] < StreamRing::s_smallest || m_sizes[ring] % s_page != 0 ||
            m_sizes[ring] > s_largestFile) {
            error = "a ring of it has " + std::to_string(m_sizes[ring]) + " bytes";
            return false;
        }
    }
    if (m_fileSize != StreamRing::fileSizeOf(m_sizes)) {
        error = "it has " + std::to_string(m_fileSize) + " bytes instead of " +
                std::to_string(StreamRing::fileSizeOf(m_sizes));
        return false;
    }
    m_salt = constants.salt;
    m_started = Time(std::chrono::nanoseconds(constants.started));
    m_instance.assign(constants.instance.data(),
                      ::strnlen(constants.instance.data(), constants.instance.size()));
    m_pWords[0] = reinterpret_cast<std::uint64_t*>(m_pBase + s_page);
    m_pWords[1] = reinterpret_cast<std::uint64_t*>(m_pBase + s_page + m_sizes[0]);
    if (m_isLive)
        return true;
    m_lastNumber = hasHeader ? header().number.load(std::memory_order_relaxed) : 0;
    for (std::size_t ring = 0; ring < s_rings; ++ring)
        m_heads[ring] = hasHeader ? header().heads[ring].load(std::memory_order_relaxed) : 0;
    // What is nonsense there would have a reader look at places that do not exist.
    bool isSane = true;
    for (std::size_t ring = 0; ring < s_rings; ++ring) {
        const std::uint64_t head = m_heads[ring];
        isSane = isSane && head % layout::s_alignment == 0 && head >= m_sizes[ring] && head < s_farthest;
    }
    if (!isSane)
        findHeads();
    return true;
}

void StreamSource::findHeads() {
    m_lastNumber = 0;
    for (std::size_t index = 0; index < s_rings; ++index) {
        const auto ring = static_cast<ERing>(index);
        const std::size_t size = m_sizes[index];
        m_heads[index] = size;
        StreamRecord record;
        for (std::size_t offset = 0; offset < size; offset += layout::s_alignment) {
            // The record itself says where it is, but for what the word has no room for.
            const auto low = static_cast<std::uint32_t>(word(ring, offset / sizeof(std::uint64_t)));
            for (std::uint64_t high = 0; high < 4; ++high) {
                const std::uint64_t position = (high << 32 | low) * layout::s_alignment;
                std::size_t length = 0;
                if (position < size || position % size != offset ||
                    !readWhole(ring, position, record, length))
                    continue;
                m_heads[index] = std::max(m_heads[index], position + length);
                m_lastNumber = std::max(m_lastNumber, record.number);
                break;
            }
        }
    }
}

bool StreamSource::lookForWriter() {
    struct stat status {};
    if (m_pMapped)
        m_isLive = hasWriter(m_path) && ::stat(m_path.c_str(), &status) == 0 && status.st_dev == m_device &&
                   status.st_ino == m_inode;
    return m_isLive;
}

std::uint64_t StreamSource::head(ERing ring) const {
    const auto index = static_cast<std::size_t>(ring);
    return m_isDead ? m_heads[index] : header().heads[index].load(std::memory_order_acquire);
}

std::uint64_t StreamSource::lastNumber() const {
    return m_isDead ? m_lastNumber : header().number.load(std::memory_order_acquire);
}

std::uint64_t StreamSource::word(ERing ring, std::size_t index) const {
    return std::atomic_ref(m_pWords[static_cast<std::size_t>(ring)][index]).load(std::memory_order_acquire);
}

bool StreamSource::mayBe(ERing ring, std::uint64_t position) const {
    const std::uint64_t first = word(ring, position % size(ring) / sizeof(std::uint64_t));
    return static_cast<std::uint32_t>(first) == static_cast<std::uint32_t>(position / layout::s_alignment);
}

bool StreamSource::read(ERing ring, std::uint64_t position, StreamRecord& record, std::size_t& size) const {
    return mayBe(ring, position) && readWhole(ring, position, record, size) &&
           position + size <= head(ring) && head(ring) - position <= this->size(ring);
}

bool StreamSource::readWhole(ERing ring, std::uint64_t position, StreamRecord& record,
                             std::size_t& size) const {
    const std::size_t count = this->size(ring) / sizeof(std::uint64_t);
    std::size_t at = position % this->size(ring) / sizeof(std::uint64_t);
    const std::uint64_t first = word(ring, at);
    const std::uint64_t checked[] = {position, word(ring, at + 1), word(ring, at + 2), word(ring, at + 3)};
    const std::size_t length = layout::lengthOf(checked[2]);
    const std::size_t words = (length + 7) / 8;
    std::uint64_t body[layout::s_longestBodyWords];
    at += layout::s_headWords;
    // A record may go on at the ring's beginning.
    const std::size_t untilEnd = std::min(words, count - at);
    for (std::size_t i = 0; i < untilEnd; ++i)
        body[i] = word(ring, at + i);
    for (std::size_t i = untilEnd; i < words; ++i)
        body[i] = word(ring, i - untilEnd);
    std::uint32_t check = crc32c(m_salt, checked, std::size(checked));
    if (words > 0)
        check = crc32c(check, body, words);
    if (static_cast<std::uint32_t>(first >> 32) != check || layout::numberOf(checked[2]) == 0)
        return false;
    size = layout::sizeOf(length);
    return StreamBody::unpack(checked[1], checked[2], checked[3], reinterpret_cast<const char*>(body),
                              record);
}

}  // namespace stream
