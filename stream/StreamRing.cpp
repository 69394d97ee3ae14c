#include "StreamRing.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <new>

#include "Crc32c.h"
#include "Printable.h"
#include "StreamBody.h"

namespace stream {
namespace {

std::string inMegabytes(std::size_t size) {
    const std::size_t kib = size / 1024;
    return kib % 1024 == 0 ? std::to_string(kib / 1024) + " MiB" : std::to_string(kib) + " KiB";
}

/// What the ring is called in messages.
std::string nameOf(const StreamRing::Settings& settings) {
    return settings.path.empty() ? std::string("the stream in memory") : base::quoted(settings.path);
}

std::string settingsFault(const StreamRing::Settings& settings) {
    for (const std::size_t size : settings.sizes) {
        if (size < StreamRing::s_smallest || size % s_page != 0 || size > (std::size_t{1} << 36))
            return "a ring cannot have " + std::to_string(size) +
                   " bytes: it takes a multiple of 4096, from 65536 on";
    }
    const bool isNamed =
        !settings.instance.empty() && settings.instance.size() <= StreamConstants::s_longestInstance &&
        std::all_of(settings.instance.begin(), settings.instance.end(), [](unsigned char c) {
            return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-';
        });
    if (!isNamed)
        return "an instance cannot be called " + base::quoted(settings.instance) +
               ": it takes 1 to 32 letters, digits and \"-\"";
    return {};
}

/// Locks PATH.lock for this process. The lock belongs to the open file, which no child inherits.
base::UniqueFd lockWriter(const std::string& path, std::string& error) {
    const std::string name = path + ".lock";
    base::UniqueFd file(::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file) {
        error = base::quoted(name) + " cannot be opened: " + std::strerror(errno);
        return file;
    }
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (::fcntl(file.get(), F_OFD_SETLK, &lock) != 0) {
        error =
            base::quoted(path) + " is written by another process" +
            (errno == EAGAIN || errno == EACCES ? std::string() : std::string(": ") + std::strerror(errno));
        file.reset();
    }
    return file;
}

/// The memory, all of it there, mapped and zero. Its pages are made ready later: that takes longer than all
/// the rest.
std::byte* mapNew(int descriptor, std::size_t size, std::string& error) {
    const auto refuse = [&](const std::string& what, int code) {
        error = what + ": " + std::strerror(code);
        return nullptr;
    };
    // What the file system has no memory for is an error here, and would be a signal later.
    if (const int code = ::posix_fallocate(descriptor, 0, static_cast<off_t>(size)); code != 0)
        return refuse(inMegabytes(size) + " cannot be had", code);
    void* pBase = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (pBase == MAP_FAILED)
        return refuse(inMegabytes(size) + " cannot be mapped", errno);
    ::madvise(pBase, size, MADV_DONTFORK);
    ::madvise(pBase, size, MADV_DONTDUMP);
    return static_cast<std::byte*>(pBase);
}

/// Of a driver's share: with less than this it counts as had. An exact bound would have who asks make each
/// record that is just too long.
constexpr std::size_t s_leastRoom = 512;
/// Made ready at a time: less than a millisecond.
constexpr std::size_t s_slice = std::size_t{1} << 20;

std::uint32_t randomSalt() {
    std::uint32_t salt = 0;
    if (::getrandom(&salt, sizeof salt, 0) != sizeof salt)
        salt = static_cast<std::uint32_t>(::getpid()) * 2654435761u;
    return salt;
}

}  // namespace

std::size_t StreamRing::fileSizeOf(const std::array<std::size_t, s_rings>& sizes) {
    return s_page + sizes[0] + sizes[1] + s_page;
}

std::unique_ptr<StreamRing> StreamRing::create(const Settings& settings, Time now, std::string& error) {
    error = settingsFault(settings);
    if (!error.empty())
        return nullptr;
    const std::size_t size = fileSizeOf(settings.sizes);
    const std::string draft = settings.path + ".part";
    base::UniqueFd lock;
    base::UniqueFd file;
    if (settings.path.empty()) {
        file = base::UniqueFd(::memfd_create("mfhost-stream", MFD_CLOEXEC));
    } else {
        lock = lockWriter(settings.path, error);
        if (!lock)
            return nullptr;
        ::unlink(draft.c_str());
        file = base::UniqueFd(::open(draft.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    }
    if (!file) {
        error = nameOf(settings) + " cannot be made: " + std::strerror(errno);
        return nullptr;
    }
    const auto giveUp = [&](const std::string& reason) {
        if (!settings.path.empty())
            ::unlink(draft.c_str());
        error = nameOf(settings) + ": " + reason;
    };
    std::string reason;
    std::byte* const pBase = mapNew(file.get(), size, reason);
    if (!pBase) {
        giveUp(reason + "; the file system needs so much memory, or the rings must be smaller");
        return nullptr;
    }
    std::unique_ptr<StreamRing> pRing(new StreamRing(settings, now, std::move(lock), pBase));
    if (!settings.path.empty() && ::rename(draft.c_str(), settings.path.c_str()) != 0) {
        giveUp(std::string("the file cannot be put in its place: ") + std::strerror(errno));
        return nullptr;
    }
    return pRing;
}

StreamRing::StreamRing(const Settings& settings, Time now, base::UniqueFd lock, std::byte* pBase)
    : m_instance(settings.instance),
      m_sizes(settings.sizes),
      m_youth(settings.youth),
      m_fileSize(fileSizeOf(settings.sizes)),
      m_lock(std::move(lock)),
      m_pBase(pBase),
      m_salt(randomSalt()),
      m_pDrivers(std::make_unique<DriverPart[]>(s_drivers)) {
    auto* const pHeader = new (m_pBase) StreamHeader;
    StreamConstants constants;
    constants.salt = m_salt;
    std::copy(m_sizes.begin(), m_sizes.end(), constants.sizes.begin());
    constants.started = now.time_since_epoch().count();
    m_instance.copy(constants.instance.data(), constants.instance.size());
    std::array<std::uint64_t, sizeof(StreamConstants) / sizeof(std::uint64_t)> words{};
    std::memcpy(words.data(), &constants, sizeof constants);
    constants.check = crc32c(0, words.data(), words.size() - 1);

    pHeader->number.store(0, std::memory_order_relaxed);
    pHeader->dropped.store(0, std::memory_order_relaxed);
    for (std::size_t ring = 0; ring < s_rings; ++ring)
        pHeader->heads[ring].store(m_sizes[ring], std::memory_order_relaxed);
    std::memcpy(&pHeader->constants, &constants, sizeof constants);
    std::memcpy(m_pBase + m_fileSize - s_page, &constants, sizeof constants);
    m_pWords[0] = reinterpret_cast<std::uint64_t*>(m_pBase + s_page);
    m_pWords[1] = reinterpret_cast<std::uint64_t*>(m_pBase + s_page + m_sizes[0]);
    while ((m_sizes[1] >> m_sectorShift) > s_sectors / 2)
        ++m_sectorShift;
    // Parts that nobody has come into yet count as entered now: a flood cannot fill them at once.
    for (auto& entered : m_entered)
        entered.store(constants.started, std::memory_order_relaxed);
}

StreamRing::~StreamRing() {
    ::munmap(m_pBase, m_fileSize);
}

bool StreamRing::makeReady() noexcept {
    if (m_ready >= m_fileSize)
        return true;
    const std::size_t size = std::min(s_slice, m_fileSize - m_ready);
    // An old kernel cannot; each page is made ready by who writes there first then.
    const bool isDone = ::madvise(m_pBase + m_ready, size, MADV_POPULATE_WRITE) == 0;
    m_ready = isDone ? m_ready + size : m_fileSize;
    return m_ready >= m_fileSize;
}

std::uint64_t StreamRing::write(Time when, const StreamEntry& entry) noexcept {
    const ERing ring = ringOf(entry.kind);
    // Not set to zero: it is filled as far as it is used.
    std::uint64_t body[layout::s_longestBodyWords];
    const StreamBody packed = StreamBody::pack(entry, body);
    const std::size_t size = layout::sizeOf(packed.length);
    DriverPart& driver = part(entry.key);
    DriverPart& causer = entry.causedBy ? m_pDrivers[*entry.causedBy % s_drivers] : driver;
    if (isRationed(entry.kind) && !takeShare(causer, size, when)) {
        causer.refused.fetch_add(1, std::memory_order_relaxed);
        return 0;
    }

    StreamHeader& shared = header();
    std::atomic<std::uint64_t>& head = shared.heads[static_cast<std::size_t>(ring)];
    const std::uint64_t ringSize = m_sizes[static_cast<std::size_t>(ring)];
    const std::uint64_t position = head.fetch_add(size, std::memory_order_acq_rel);
    const std::uint64_t number = shared.number.fetch_add(1, std::memory_order_acq_rel) + 1;
    if (ring == ERing::Audit)
        enterSectors(position, size, when);

    const std::uint64_t checked[] = {position, layout::timeAndKind(when, entry.kind),
                                     layout::numberLengthFlags(number, packed.length, packed.flags),
                                     layout::keyAndValue(entry.key, entry.value)};
    std::uint32_t check = crc32c(m_salt, checked, std::size(checked));
    if (packed.length > 0)
        check = crc32c(check, body, packed.words());

    // Others may have gone once round the ring since: the place is theirs then.
    const auto isLapped = [&] { return head.load(std::memory_order_relaxed) - position > ringSize; };
    const auto drop = [&] {
        shared.dropped.fetch_add(1, std::memory_order_relaxed);
        return std::uint64_t{0};
    };
    if (isLapped())
        return drop();
    std::uint64_t* const pWords = words(ring);
    const std::size_t count = ringSize / sizeof(std::uint64_t);
    std::size_t at = position % ringSize / sizeof(std::uint64_t);
    std::uint64_t& first = pWords[at];
    const auto store = [&](std::uint64_t& word, std::uint64_t value) {
        std::atomic_ref(word).store(value, std::memory_order_relaxed);
    };
    for (std::size_t i = 1; i < layout::s_headWords; ++i)
        store(pWords[at + i], checked[i]);
    at += layout::s_headWords;
    for (std::size_t i = 0; i < packed.words(); ++i, ++at) {
        if (at == count)
            at = 0;
        store(pWords[at], body[i]);
    }
    if (isLapped())
        return drop();
    const std::uint64_t word0 =
        static_cast<std::uint64_t>(check) << 32 | static_cast<std::uint32_t>(position / layout::s_alignment);
    std::atomic_ref(first).store(word0, std::memory_order_release);
    driver.counts[static_cast<std::size_t>(entry.kind) % s_kinds].fetch_add(1, std::memory_order_relaxed);
    return number;
}

bool StreamRing::takeShare(DriverPart& driver, std::size_t size, Time when) noexcept {
    const std::uint64_t lap = m_sizes[static_cast<std::size_t>(ERing::Audit)];
    const std::uint64_t head = this->head(ERing::Audit);
    std::uint64_t before = driver.share.load(std::memory_order_relaxed);
    for (;;) {
        std::uint64_t after = std::max(before, head) + 8 * size;
        if (after - head > lap) {
            if (isOldestYoung(head, when))
                return false;
            after = head + lap;
        }
        if (driver.share.compare_exchange_weak(before, after, std::memory_order_relaxed))
            return true;
    }
}

bool StreamRing::isSpent(std::uint16_t driver, Time when) noexcept {
    const std::uint64_t head = this->head(ERing::Audit);
    const std::uint64_t share = m_pDrivers[driver % s_drivers].share.load(std::memory_order_relaxed);
    return share + 8 * s_leastRoom > head + m_sizes[static_cast<std::size_t>(ERing::Audit)] &&
           isOldestYoung(head, when);
}

void StreamRing::addRefused(std::uint16_t driver, std::uint64_t records) noexcept {
    m_pDrivers[driver % s_drivers].refused.fetch_add(records, std::memory_order_relaxed);
}

bool StreamRing::isOldestYoung(std::uint64_t head, Time when) noexcept {
    // The oldest record lies somewhere in its sector, and is not younger than the next sector's first one.
    const std::uint64_t oldest = head - m_sizes[static_cast<std::size_t>(ERing::Audit)];
    const std::uint64_t next = oldest + (std::uint64_t{1} << m_sectorShift);
    return when.time_since_epoch().count() - entered(next).load(std::memory_order_relaxed) < m_youth.count();
}

void StreamRing::enterSectors(std::uint64_t position, std::size_t size, Time when) noexcept {
    // Each sector is entered by the record that holds its first byte.
    const std::uint64_t before = (position - 1) >> m_sectorShift;
    const std::uint64_t last = (position + size - 1) >> m_sectorShift;
    for (std::uint64_t sector = before + 1; sector <= last; ++sector)
        m_entered[sector % s_sectors].store(when.time_since_epoch().count(), std::memory_order_relaxed);
}

StreamRing::DriverPart& StreamRing::part(std::uint32_t key) const {
    return m_pDrivers[(key >> 16) % s_drivers];
}

std::uint64_t StreamRing::count(std::uint16_t driver, EKind kind) const {
    return m_pDrivers[driver % s_drivers].counts[static_cast<std::size_t>(kind) % s_kinds].load(
        std::memory_order_relaxed);
}

std::uint64_t StreamRing::refused(std::uint16_t driver) const {
    return m_pDrivers[driver % s_drivers].refused.load(std::memory_order_relaxed);
}

std::uint64_t StreamRing::dropped() const {
    return header().dropped.load(std::memory_order_relaxed);
}

std::uint64_t StreamRing::lastNumber() const {
    return header().number.load(std::memory_order_acquire);
}

std::uint64_t StreamRing::head(ERing ring) const {
    return header().heads[static_cast<std::size_t>(ring)].load(std::memory_order_acquire);
}

}  // namespace stream
