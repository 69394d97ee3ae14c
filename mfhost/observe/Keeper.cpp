#include "Keeper.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include "FileReplacement.h"
#include "Printable.h"
#include "SegmentReader.h"
#include "StreamText.h"

namespace {

using stream::EKind;

constexpr std::string_view s_segmentSuffix = ".seg";
constexpr std::size_t s_digits = 8;
/// A reader that is behind has at most so many records taken at a time.
constexpr int s_mostPerStep = 100'000;
constexpr std::chrono::seconds s_second{1};
/// Among so many of the newest segments a host's last one is, where it has any.
constexpr std::size_t s_newest = 8;

/// For what a second may bring and for values that are replaced in it.
std::size_t roomOf(std::size_t perSecond) {
    constexpr std::size_t granule = std::size_t{64} << 10;
    return (perSecond + perSecond / 4 + granule) / granule * granule;
}

std::string pathOf(const std::string& directory, std::uint64_t number) {
    std::array<char, 32> name{};
    std::snprintf(name.data(), name.size(), "%08llu.seg", static_cast<unsigned long long>(number));
    return directory + '/' + name.data();
}

/// The number in NNNNNNNN.seg; 0 for another name.
std::uint64_t numberOf(std::string_view name) {
    std::uint64_t number = 0;
    if (name.size() < s_digits + s_segmentSuffix.size() ||
        name.substr(name.size() - s_segmentSuffix.size()) != s_segmentSuffix)
        return 0;
    name.remove_suffix(s_segmentSuffix.size());
    const auto [pEnd, fault] = std::from_chars(name.data(), name.data() + name.size(), number);
    return fault == std::errc() && pEnd == name.data() + name.size() ? number : 0;
}

std::vector<std::uint64_t> numbersIn(const std::string& directory) {
    std::vector<std::uint64_t> numbers;
    DIR* const pDirectory = ::opendir(directory.c_str());
    if (!pDirectory)
        return numbers;
    while (const dirent* const pEntry = ::readdir(pDirectory)) {
        if (const std::uint64_t number = numberOf(pEntry->d_name); number != 0)
            numbers.push_back(number);
    }
    ::closedir(pDirectory);
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

std::size_t sizeOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
}

/// What must be on the disk at once.
bool isUrgent(EKind kind) {
    switch (kind) {
        case EKind::Exit:
        case EKind::Hang:
        case EKind::Restart:
        case EKind::Command:
        case EKind::CommandEnd:
        case EKind::Mark:
            return true;
        default:
            return false;
    }
}

stream::StreamRecord recordOf(std::uint32_t reason, const stream::StreamGap& gap) {
    const std::array<std::uint64_t, 5> words{gap.first, gap.next, gap.count,
                                             static_cast<std::uint64_t>(gap.from.time_since_epoch().count()),
                                             static_cast<std::uint64_t>(gap.to.time_since_epoch().count())};
    stream::StreamRecord record;
    record.number = gap.first;
    record.time = gap.to;
    record.kind = EKind::Gap;
    record.value = reason;
    record.text.assign(reinterpret_cast<const char*>(words.data()), sizeof words);
    return record;
}

/// The number of the last record of that host that stands in a segment; 0 for none.
std::uint64_t lastKept(const std::string& directory, const std::string& instance) {
    const std::vector<std::uint64_t> numbers = numbersIn(directory);
    const std::size_t looked = std::min(numbers.size(), s_newest);
    for (std::size_t i = 1; i <= looked; ++i) {
        std::string error;
        const auto pSegment =
            stream::SegmentReader::open(pathOf(directory, numbers[numbers.size() - i]), error);
        if (pSegment && pSegment->instance() == instance)
            return pSegment->lastNumber();
    }
    return 0;
}

}  // namespace

std::vector<std::string> Keeper::segments(const std::string& directory) {
    std::vector<std::string> paths;
    for (const std::uint64_t number : numbersIn(directory))
        paths.push_back(pathOf(directory, number));
    return paths;
}

std::unique_ptr<Keeper> Keeper::open(const Settings& settings, const stream::StreamSource& source,
                                     Report report, std::string& error) {
    return openAt(settings, source, stream::StreamCursor::oldest(), std::move(report), error);
}

void Keeper::keepRest(const Settings& settings, const stream::StreamSource& source, const Report& report) {
    if (::access(settings.directory.c_str(), F_OK) != 0)
        return;
    const std::uint64_t kept = lastKept(settings.directory, source.instance());
    if (kept >= source.lastNumber())
        return;
    const auto from = kept == 0 ? stream::StreamCursor::oldest()
                                : stream::StreamCursor{stream::StreamCursor::EPlace::Exact, source.instance(),
                                                       std::nullopt, kept + 1};
    std::string error;
    const auto pKeeper = openAt(settings, source, from, report, error);
    if (!pKeeper) {
        report("what a killed host had recorded last is in its black box alone: " + error, false);
        return;
    }
    // Each step has a second's limit to itself.
    auto now = Clock::now();
    for (std::uint64_t before = 0; pKeeper->m_pReader->cursor().position > before; now += s_second) {
        before = pKeeper->m_pReader->cursor().position;
        pKeeper->step(now);
    }
}

std::unique_ptr<Keeper> Keeper::openAt(const Settings& settings, const stream::StreamSource& source,
                                       const stream::StreamCursor& from, Report report, std::string& error) {
    if (::mkdir(settings.directory.c_str(), 0700) != 0 && errno != EEXIST) {
        error = base::quoted(settings.directory) + " cannot be made: " + std::strerror(errno);
        return nullptr;
    }
    // Where it is new, its name must not be lost with what is synced in it. Not every directory above may be
    // read.
    static_cast<void>(base::syncDirectoryOf(settings.directory));
    if (::access(settings.directory.c_str(), R_OK | W_OK | X_OK) != 0) {
        error = base::quoted(settings.directory) + " cannot be written: " + std::strerror(errno);
        return nullptr;
    }
    auto pReader = stream::StreamReader::open(source, from, error);
    if (!pReader)
        return nullptr;
    const auto numbers = numbersIn(settings.directory);
    return std::unique_ptr<Keeper>(new Keeper(settings, std::move(pReader), source.instance(),
                                              std::move(report), numbers.empty() ? 1 : numbers.back() + 1));
}

Keeper::Keeper(const Settings& settings, std::unique_ptr<stream::StreamReader> pReader, std::string instance,
               Report report, std::uint64_t nextFile)
    : m_settings(settings),
      m_pReader(std::move(pReader)),
      m_instance(std::move(instance)),
      m_report(std::move(report)),
      m_nextFile(nextFile),
      m_frame(roomOf(settings.perSecond)) {}

Keeper::~Keeper() {
    writeFrame(Clock::time_point::max());
}

void Keeper::step(Clock::time_point now) {
    using EResult = stream::IStreamReader::EResult;
    if (m_second == Clock::time_point())
        m_second = now;
    for (int i = 0; i < s_mostPerStep; ++i) {
        const auto result = m_pReader->next(now);
        if (result == EResult::Record)
            take(m_pReader->record(), now);
        else if (result == EResult::Gap)
            missed(m_pReader->gap(), now);
        else
            break;
    }
    const bool isSecondOver = now - m_second >= s_second;
    const bool maySync = now - m_synced >= std::chrono::milliseconds(1000) / m_settings.syncsPerSecond;
    if (isSecondOver || (m_isUrgent && maySync))
        writeFrame(now);
    if (isSecondOver) {
        m_second = now;
        m_bytes = 0;
    }
}

void Keeper::take(const stream::StreamRecord& record, Clock::time_point now) {
    m_last = record.time;
    // What the numbers mean stands in each frame.
    if (record.kind == EKind::Define)
        return;
    const std::ptrdiff_t growth = m_frame.growth(record);
    const bool isAtWill = stream::isValue(record.kind) || stream::isRationed(record.kind);
    if (isAtWill && m_bytes + growth > static_cast<std::ptrdiff_t>(m_settings.perSecond)) {
        if (m_limited++ == 0)
            m_firstLimited = record.number;
        return;
    }
    m_bytes += growth;
    keep(record, now);
    m_isUrgent = m_isUrgent || isUrgent(record.kind);
}

/// A frame without room is written before its time.
void Keeper::keep(const stream::StreamRecord& record, Clock::time_point now) {
    if (m_frame.add(record))
        return;
    writeFrame(now);
    m_frame.add(record);
}

void Keeper::missed(const stream::StreamGap& gap, Clock::time_point now) {
    m_lost += gap.count;
    if (gap.reason == stream::StreamGap::EReason::Lapped)
        m_lapped += gap.count;
    keep(recordOf(static_cast<std::uint32_t>(gap.reason), gap), now);
}

stream::StreamRecord Keeper::lostRecord(std::uint32_t reason, std::uint64_t first,
                                        std::uint64_t count) const {
    stream::StreamGap gap;
    gap.first = first;
    gap.next = m_pReader->cursor().position;
    gap.count = count;
    gap.from = gap.to = m_last;
    return recordOf(reason, gap);
}

void Keeper::writeFrame(Clock::time_point now) {
    m_isUrgent = false;
    if (m_frame.isEmpty() && m_limited == 0)
        return;
    m_synced = now;
    const std::string fault = append();
    tell(fault);
    m_lost += m_limited;
    // One gap for all that is in no segment, and for the gaps among it.
    const bool isLimitSaid = m_limited == 0 || m_firstLimited <= m_written;
    std::uint64_t first = isLimitSaid ? ~std::uint64_t{0} : m_firstLimited;
    std::uint64_t count = isLimitSaid ? 0 : m_limited;
    m_limited = 0;
    m_frame.forEach([&](const stream::StreamRecord& record) {
        if (record.number <= m_written)
            return;
        const bool isGap = record.kind == EKind::Gap;
        count += isGap ? stream::countOf(record) : 1;
        m_lost += isGap ? 0 : 1;
        first = std::min(first, record.number);
    });
    m_frame.clear();
    if (count > 0)
        m_frame.add(lostRecord(s_disk, first, count));
}

std::string Keeper::append() {
    if (!m_pSegment || m_pSegment->size() >= m_settings.segment) {
        m_pSegment.reset();
        if (std::string fault = openSegment(); !fault.empty())
            return fault;
    }
    std::string fault;
    std::uint64_t last = m_written;
    const auto write = [&] {
        fault = m_pSegment->writeFrame();
        if (fault.empty())
            m_written = last;
    };
    const auto put = [&](const stream::StreamRecord& record) {
        if (!fault.empty())
            return;
        m_pSegment->add(record, m_pReader->names());
        last = record.number;
        if (m_pSegment->isFull())
            write();
    };
    bool isLimitSaid = m_limited == 0;
    const auto sayLimit = [&] {
        if (!std::exchange(isLimitSaid, true))
            put(lostRecord(s_limit, m_firstLimited, m_limited));
    };
    m_frame.forEach([&](const stream::StreamRecord& record) {
        if (record.number > m_firstLimited)
            sayLimit();
        put(record);
    });
    sayLimit();
    if (!fault.empty())
        return fault;
    write();
    if (!fault.empty())
        return fault;
    removeOldest();
    return m_pSegment->sync();
}

std::string Keeper::openSegment() {
    std::string error;
    m_pSegment = stream::SegmentWriter::create(pathOf(m_settings.directory, m_nextFile), m_instance, error);
    if (m_pSegment)
        ++m_nextFile;
    return error;
}

void Keeper::removeOldest() {
    const auto paths = segments(m_settings.directory);
    std::size_t all = 0;
    for (const std::string& path : paths)
        all += sizeOf(path);
    for (const std::string& path : paths) {
        if (all <= m_settings.keep || path == m_pSegment->path())
            return;
        all -= sizeOf(path);
        ::unlink(path.c_str());
    }
}

void Keeper::tell(const std::string& fault) {
    if (fault == m_fault || !m_report)
        return;
    if (fault.empty())
        m_report("the recording goes on", true);
    else
        m_report("the recording has a gap: " + fault, false);
    m_fault = fault;
}
