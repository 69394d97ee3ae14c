#include "BlackBox.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>

#include "FileReplacement.h"
#include "Printable.h"
#include "SegmentReader.h"

namespace {

using stream::EKind;

constexpr int s_perStep = 20'000;
constexpr std::size_t s_longestCause = 40;
constexpr std::string_view s_suffix = ".seg";
constexpr const char* s_part = ".part";
constexpr std::string_view s_unfinished = ".seg.part";

/// As it may stand in a file's name.
std::string plain(std::string_view text) {
    std::string name;
    for (const char letter : text) {
        const bool isPlain = (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'z') ||
                             (letter >= 'A' && letter <= 'Z') || letter == '_';
        if (isPlain)
            name += letter;
        else if (!name.empty() && name.back() != '-')
            name += '-';
    }
    while (name.ends_with('-'))
        name.pop_back();
    return name;
}

std::vector<std::string> filesThatEnd(const std::string& directory, std::string_view end) {
    std::vector<std::string> files;
    DIR* const pDirectory = ::opendir(directory.c_str());
    if (!pDirectory)
        return files;
    while (const dirent* const pEntry = ::readdir(pDirectory)) {
        if (std::string_view(pEntry->d_name).ends_with(end))
            files.push_back(directory + '/' + pEntry->d_name);
    }
    ::closedir(pDirectory);
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

std::string BlackBox::nameOf(stream::Time when, const std::string& driverID, const std::string& cause) {
    const auto seconds = static_cast<std::time_t>(
        std::chrono::duration_cast<std::chrono::seconds>(when.time_since_epoch()).count());
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 32> time{};
    std::strftime(time.data(), time.size(), "%Y%m%dT%H%M%SZ", &parts);
    return std::string(time.data()) + '-' + plain(std::string_view(driverID).substr(0, s_longestCause)) +
           '-' + plain(std::string_view(cause).substr(0, s_longestCause)) + std::string(s_suffix);
}

std::vector<std::string> BlackBox::filesIn(const std::string& directory) {
    return filesThatEnd(directory, s_suffix);
}

void BlackBox::removeUnfinished(const std::string& directory) {
    for (const std::string& file : filesThatEnd(directory, s_unfinished))
        ::unlink(file.c_str());
}

void BlackBox::keepNewest(const std::string& directory, std::size_t most) {
    const auto files = filesIn(directory);
    for (std::size_t i = 0; i + most < files.size(); ++i)
        ::unlink(files[i].c_str());
}

std::unique_ptr<BlackBox> BlackBox::begin(const stream::StreamSource& source, std::uint64_t firstNumber,
                                          stream::Time from, stream::Time to, const std::string& directory,
                                          const std::string& name, std::string& error) {
    if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) {
        error = base::quoted(directory) + " cannot be made: " + std::strerror(errno);
        return nullptr;
    }
    static_cast<void>(base::syncDirectoryOf(directory));
    const stream::StreamCursor place{.place = stream::StreamCursor::EPlace::Exact,
                                     .instance = source.instance(),
                                     .ring = std::nullopt,
                                     .position = firstNumber};
    auto pReader =
        stream::StreamReader::open(source, firstNumber == 0 ? stream::StreamCursor::oldest() : place, error);
    if (!pReader)
        return nullptr;
    const std::string path = directory + '/' + name;
    ::unlink((path + s_part).c_str());
    auto pSegment = stream::SegmentWriter::create(path + s_part, source.instance(), error);
    if (!pSegment)
        return nullptr;
    return std::unique_ptr<BlackBox>(new BlackBox(std::move(pReader), std::move(pSegment), from, to, path));
}

BlackBox::BlackBox(std::unique_ptr<stream::StreamReader> pReader,
                   std::unique_ptr<stream::SegmentWriter> pSegment, stream::Time from, stream::Time to,
                   std::string path)
    : m_pReader(std::move(pReader)),
      m_pSegment(std::move(pSegment)),
      m_from(from),
      m_to(to),
      m_path(std::move(path)) {}

BlackBox::~BlackBox() {
    if (m_pSegment)
        ::unlink((m_path + s_part).c_str());
}

BlackBox::EState BlackBox::step() {
    using EResult = stream::IStreamReader::EResult;
    for (int i = 0; i < s_perStep; ++i) {
        const auto result = m_pReader->next(std::chrono::steady_clock::now());
        // A place that is not filled yet is none to wait for.
        if (result == EResult::Nothing || result == EResult::End)
            return end(m_pSegment->writeFrame());
        if (result != EResult::Record)
            continue;
        const stream::StreamRecord& record = m_pReader->record();
        if (record.kind == EKind::Define || record.time < m_from)
            continue;
        // The records of two threads may be a moment out of order.
        if (record.time > m_to + std::chrono::seconds(1))
            return end(m_pSegment->writeFrame());
        m_pSegment->add(record, m_pReader->names());
        if (!m_pSegment->isFull())
            continue;
        if (std::string fault = m_pSegment->writeFrame(); !fault.empty())
            return end(fault);
    }
    return EState::Goes;
}

BlackBox::EState BlackBox::end(const std::string& fault) {
    m_text = fault.empty() ? m_pSegment->sync() : fault;
    if (!m_text.empty())
        return EState::Failed;
    const std::string path = freePath();
    if (::rename((m_path + s_part).c_str(), path.c_str()) != 0) {
        m_text = base::quoted(path) + " cannot be made: " + std::strerror(errno);
        return EState::Failed;
    }
    m_pSegment.reset();
    m_text = base::syncDirectoryOf(path);
    if (!m_text.empty())
        return EState::Failed;
    m_text = path;
    return EState::Done;
}

/// Its own name, or a numbered one where a box of the same second has that. The same box once more takes the
/// other's place.
std::string BlackBox::freePath() const {
    std::string error;
    std::unique_ptr<stream::SegmentReader> pOwn;
    const auto isSame = [&](const std::string& path) {
        if (!pOwn)
            pOwn = stream::SegmentReader::open(m_path + s_part, error);
        const auto pOther = stream::SegmentReader::open(path, error);
        return pOwn && pOther && pOwn->instance() == pOther->instance() &&
               pOwn->firstNumber() == pOther->firstNumber() && pOwn->lastNumber() == pOther->lastNumber();
    };
    std::string path = m_path;
    for (int number = 2; ::access(path.c_str(), F_OK) == 0 && !isSame(path); ++number)
        path = m_path.substr(0, m_path.size() - s_suffix.size()) + '-' + std::to_string(number) +
               std::string(s_suffix);
    return path;
}
