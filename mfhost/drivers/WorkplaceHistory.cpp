#include "WorkplaceHistory.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>
#include <system_error>
#include <utility>

#include "Digest.h"
#include "FileReplacement.h"
#include "Printable.h"
#include "RegularFile.h"
#include "TimeText.h"

namespace fs = std::filesystem;

namespace {

using EKind = WorkplaceState::EKind;

constexpr const char* s_files = "files";
constexpr std::size_t s_largestEntry = 1u << 20;
/// A number beyond it was not given by a host.
constexpr unsigned s_mostNumber = 99'999'999;
constexpr std::size_t s_digestDigits = 64;

const std::map<std::string, EKind>& kinds() {
    static const std::map<std::string, EKind> s_kinds{{"workplace", EKind::Workplace},
                                                      {"signature", EKind::Signature},
                                                      {"record", EKind::SigningRecord},
                                                      {"descriptor", EKind::Descriptor},
                                                      {"module", EKind::Module}};
    return s_kinds;
}

std::string nameOf(EKind kind) {
    for (const auto& [name, value] : kinds()) {
        if (value == kind)
            return name;
    }
    return {};
}

/// Of the file of a state; nothing for another name.
std::optional<unsigned> stateNumber(const std::string& name) {
    unsigned number = 0;
    const auto read = std::from_chars(name.data(), name.data() + name.size(), number);
    const bool isNumber = read.ec == std::errc() && std::to_string(number) == name;
    return isNumber && number > 0 && number <= s_mostNumber ? std::optional(number) : std::nullopt;
}

bool isDigest(const std::string& text) {
    return text.size() == s_digestDigits && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

/// One file of a state, as its entry names it.
struct Reference {
    EKind kind = EKind::Module;
    std::string digest;  ///< "-" where the bytes are not kept
    std::string identity;
    std::string path;
};

struct Written {
    HistoryEntry entry;
    std::vector<Reference> references;
};

std::string textOf(const Written& written) {
    const HistoryEntry& entry = written.entry;
    std::ostringstream text;
    text << "# A state of the workplace that was applied; its files lie in files/ under their SHA-256.\n"
         << "time: " << base::utcText(entry.when) << "\n"
         << "who: " << base::printable(entry.who) << "\n"
         << "digest: " << base::printable(entry.digest) << "\n"
         << "outcome: " << base::printable(entry.outcome) << "\n";
    if (entry.restores)
        text << "restores: " << entry.restores << "\n";
    if (!entry.isApplied)
        text << "applied: no\n";
    for (const Reference& reference : written.references)
        text << nameOf(reference.kind) << ": " << reference.digest << " "
             << (reference.identity.empty() ? "-" : reference.identity) << " " << reference.path << "\n";
    // A file that lacks it was cut off.
    text << "end\n";
    return text.str();
}

bool readReference(EKind kind, const std::string& value, std::vector<Reference>& references) {
    const auto first = value.find(' ');
    const auto second = first == std::string::npos ? first : value.find(' ', first + 1);
    if (second == std::string::npos || second + 1 == value.size())
        return false;
    Reference reference{kind, value.substr(0, first), value.substr(first + 1, second - first - 1),
                        value.substr(second + 1)};
    const auto isRight = [](const std::string& digest) { return digest == "-" || isDigest(digest); };
    if (!isRight(reference.digest) || !isRight(reference.identity))
        return false;
    references.push_back(std::move(reference));
    return true;
}

/// Nothing, with what is wrong in error, when the text is no whole entry.
std::optional<Written> parse(unsigned number, const std::string& text, std::string& error) {
    Written written;
    written.entry.number = number;
    bool hasTime = false;
    bool isWhole = false;
    std::istringstream lines(text);
    int count = 0;
    for (std::string line; std::getline(lines, line);) {
        ++count;
        const auto colon = line.find(": ");
        const std::string name = line.substr(0, colon);
        const std::string value = colon == std::string::npos ? std::string() : line.substr(colon + 2);
        bool isRight = true;
        if (name == "time") {
            const auto when = base::utcTime(value);
            isRight = hasTime = when.has_value();
            written.entry.when = when.value_or(std::chrono::system_clock::time_point());
        } else if (name == "who") {
            written.entry.who = value;
        } else if (name == "digest") {
            written.entry.digest = value;
        } else if (name == "outcome") {
            written.entry.outcome = value;
        } else if (name == "restores") {
            const auto restored = stateNumber(value);
            isRight = restored && *restored < number;
            written.entry.restores = restored.value_or(0);
        } else if (name == "applied") {
            written.entry.isApplied = value != "no";
        } else if (const auto kind = kinds().find(name); kind != kinds().end()) {
            isRight = readReference(kind->second, value, written.references);
        } else if (line == "end") {
            isWhole = true;
        }
        if (!isRight) {
            error = "line " + std::to_string(count) + " cannot be read";
            return std::nullopt;
        }
    }
    if (isWhole && hasTime)
        return written;
    error = "it is not whole";
    return std::nullopt;
}

std::optional<Written> readEntry(const std::string& path, unsigned number, std::string& error) {
    const auto file = base::RegularFile::read(path, s_largestEntry);
    if (file)
        return parse(number, file.bytes, error);
    error = file.reason;
    return std::nullopt;
}

/// 0 where it is there afterwards, else the system's error number.
int makeDirectory(const std::string& path) {
    struct stat status {};
    if (::mkdir(path.c_str(), 0755) == 0 ||
        (errno == EEXIST && ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)))
        return 0;
    return errno == EEXIST ? ENOTDIR : errno;
}

}  // namespace

WorkplaceHistory::WorkplaceHistory(std::string directory)
    : WorkplaceHistory(std::move(directory), Limits()) {}

WorkplaceHistory::WorkplaceHistory(std::string directory, Limits limits)
    : m_directory(std::move(directory)), m_limits(limits) {}

std::string WorkplaceHistory::entryPath(unsigned number) const {
    return m_directory + "/" + std::to_string(number);
}

std::string WorkplaceHistory::filePath(const std::string& digest) const {
    return m_directory + "/" + s_files + "/" + digest;
}

std::vector<std::string> WorkplaceHistory::read() {
    m_entries.clear();
    std::vector<std::string> complaints;
    if (m_directory.empty())
        return complaints;
    std::error_code code;
    std::set<unsigned> numbers;
    for (fs::directory_iterator file(m_directory, code); !code && file != fs::directory_iterator();
         file.increment(code)) {
        if (const auto number = stateNumber(file->path().filename()))
            numbers.insert(*number);
    }
    if (code && code != std::errc::no_such_file_or_directory)
        complaints.push_back(m_directory + " cannot be read: " + code.message() +
                             "; what was applied before is not known");
    // Those beyond the limit are given up with the next one that is kept.
    while (numbers.size() > m_limits.states)
        numbers.erase(numbers.begin());
    for (const unsigned number : numbers) {
        std::string error;
        if (const auto written = readEntry(entryPath(number), number, error))
            m_entries.push_back(written->entry);
        else
            complaints.push_back(entryPath(number) + " is left out: " + error);
    }
    return complaints;
}

const HistoryEntry* WorkplaceHistory::find(unsigned number) const {
    const auto found = std::find_if(m_entries.begin(), m_entries.end(),
                                    [&](const HistoryEntry& entry) { return entry.number == number; });
    return found == m_entries.end() ? nullptr : &*found;
}

const HistoryEntry* WorkplaceHistory::present() const {
    const auto found = std::find_if(m_entries.rbegin(), m_entries.rend(),
                                    [](const HistoryEntry& entry) { return entry.isApplied; });
    return found == m_entries.rend() ? nullptr : &*found;
}

const HistoryEntry* WorkplaceHistory::beforePresent() const {
    const HistoryEntry* pPresent = present();
    const auto found = std::find_if(m_entries.rbegin(), m_entries.rend(), [&](const HistoryEntry& entry) {
        return pPresent && entry.isApplied && entry.number < pPresent->state() &&
               entry.state() != pPresent->state();
    });
    return found == m_entries.rend() ? nullptr : &*found;
}

std::optional<WorkplaceState> WorkplaceHistory::state(unsigned number, std::string& error) const {
    const auto written = readEntry(entryPath(number), number, error);
    if (!written) {
        error = entryPath(number) + " cannot be used: " + error;
        return std::nullopt;
    }
    WorkplaceState state;
    for (const Reference& reference : written->references) {
        WorkplaceState::File file{reference.kind, reference.path, reference.identity, std::nullopt};
        if (reference.digest != "-") {
            auto kept = base::RegularFile::read(filePath(reference.digest), s_largestFile);
            if (!kept || sha256(kept.bytes) != reference.digest) {
                error = "what was kept of " + reference.path + " is " +
                        (kept ? "damaged" : "gone: " + kept.reason) + " (" + filePath(reference.digest) + ")";
                return std::nullopt;
            }
            file.bytes = std::move(kept.bytes);
        }
        state.files.push_back(std::move(file));
    }
    return state;
}

unsigned WorkplaceHistory::add(HistoryEntry entry, const WorkplaceState& state, std::string& error) {
    entry.number = m_entries.empty() ? 1 : m_entries.back().number + 1;
    // One that could not be read has its number, too.
    std::error_code code;
    while (fs::exists(fs::symlink_status(entryPath(entry.number), code)))
        ++entry.number;
    if (entry.number > s_mostNumber) {
        error = m_directory + " has no number left";
        return 0;
    }
    for (const std::string& directory : {m_directory, m_directory + "/" + s_files}) {
        if (const int reason = makeDirectory(directory)) {
            error = directory + " cannot be made: " + std::strerror(reason);
            return 0;
        }
    }
    Written written{entry, {}};
    for (const WorkplaceState::File& file : state.files) {
        // A name that would not be one line of the entry.
        if (!base::isPrintable(file.path))
            continue;
        const std::string digest = file.bytes ? sha256(*file.bytes) : "-";
        if (file.bytes && !keepBytes(digest, *file.bytes, error))
            return 0;
        written.references.push_back({file.kind, digest, file.identity, file.path});
    }
    // Its files are on disk by now.
    if (const std::string reason = base::replaceFile(entryPath(entry.number), textOf(written));
        !reason.empty()) {
        error = entryPath(entry.number) + " cannot be written: " + reason;
        return 0;
    }
    m_entries.push_back(entry);
    giveUpOldest();
    return entry.number;
}

bool WorkplaceHistory::keepBytes(const std::string& digest, const std::string& bytes, std::string& error) {
    if (m_kept.contains(digest))
        return true;
    const std::string path = filePath(digest);
    const auto there = base::RegularFile::read(path, s_largestFile);
    if (!there || there.bytes != bytes) {
        if (const std::string reason = base::replaceFile(path, bytes); !reason.empty()) {
            error = path + " cannot be written: " + reason;
            return false;
        }
    }
    m_kept.insert(digest);
    return true;
}

void WorkplaceHistory::giveUpOldest() {
    while (m_entries.size() > m_limits.states)
        m_entries.erase(m_entries.begin());
    // The present state stays, and the one before it.
    while (removeUnused() > m_limits.bytes && m_entries.size() > 2)
        m_entries.erase(m_entries.begin());
}

/// Removes the entries before the first one that is left, and the files that no entry has. How many bytes the
/// others have together.
std::uint64_t WorkplaceHistory::removeUnused() {
    std::error_code code;
    for (fs::directory_iterator file(m_directory, code); !code && file != fs::directory_iterator();
         file.increment(code)) {
        const auto number = stateNumber(file->path().filename());
        std::error_code ignored;
        if (number && *number < m_entries.front().number)
            fs::remove(file->path(), ignored);
    }
    std::set<std::string> used;
    for (const HistoryEntry& entry : m_entries) {
        std::string error;
        if (const auto written = readEntry(entryPath(entry.number), entry.number, error)) {
            for (const Reference& reference : written->references)
                used.insert(reference.digest);
        }
    }
    std::uint64_t bytes = 0;
    for (fs::directory_iterator file(m_directory + "/" + s_files, code);
         !code && file != fs::directory_iterator(); file.increment(code)) {
        const std::string name = file->path().filename();
        std::error_code ignored;
        if (used.contains(name))
            bytes += file->file_size(ignored);
        // A host that was killed may have left the beginning of one.
        else if (isDigest(name) || (name.ends_with(".part") && isDigest(name.substr(0, s_digestDigits))))
            fs::remove(file->path(), ignored);
    }
    std::erase_if(m_kept, [&](const std::string& digest) { return !used.contains(digest); });
    return bytes;
}
