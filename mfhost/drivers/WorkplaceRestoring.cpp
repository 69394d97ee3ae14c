#include "WorkplaceRestoring.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include "RegularFile.h"
#include "WorkplaceHistory.h"

namespace fs = std::filesystem;

namespace {

using EKind = WorkplaceState::EKind;
using File = WorkplaceState::File;

constexpr const char* s_signatureEnd = ".sig";
constexpr const char* s_recordEnd = ".sig.info";

std::optional<std::string> bytesOf(const std::string& path) {
    auto file = base::RegularFile::read(path, WorkplaceHistory::s_largestFile);
    return file ? std::optional(std::move(file.bytes)) : std::nullopt;
}

bool isInDriverDirectory(const std::string& path, const std::vector<std::string>& directories) {
    const fs::path directory = fs::path(path).parent_path().lexically_normal();
    return std::any_of(directories.begin(), directories.end(), [&](const std::string& one) {
        fs::path normal = fs::path(one).lexically_normal();
        if (!normal.has_filename())
            normal = normal.parent_path();
        return normal == directory;
    });
}

/// Where the operator's own file lies, which may be reached by a link.
std::string placeOf(const std::string& path) {
    std::error_code code;
    const fs::path place = fs::weakly_canonical(path, code);
    return code ? path : place.string();
}

void addIfOther(std::vector<FileExchange::Change>& changes, const std::string& path,
                const std::optional<std::string>& bytes) {
    const std::string place = placeOf(path);
    std::error_code code;
    const bool isThere = fs::exists(fs::symlink_status(place, code));
    if (bytes ? bytesOf(place) != bytes : isThere)
        changes.push_back({place, bytes});
}

/// Why the file of a driver is not given back; empty when it is.
std::string obstacle(const File& file, const WorkplacePlanner::Settings& settings) {
    std::error_code code;
    if (!isInDriverDirectory(file.path, settings.driverDirectories))
        return "it lies in none of the driver directories";
    if (!file.bytes)
        return "it was too large to be kept";
    if (settings.isSignatureRequired)
        return "nothing vouches for what was kept of it, and --require-signature asks for that";
    if (fs::is_symlink(fs::symlink_status(file.path, code)))
        return "it is a link";
    return {};
}

}  // namespace

WorkplaceState stateOf(const WorkplacePlanner::Draft& draft) {
    WorkplaceState state;
    const WorkplaceSnapshot& workplace = *draft.pWorkplace;
    state.files.push_back({EKind::Workplace, workplace.path(), {}, workplace.bytes()});
    if (!workplace.signature().empty())
        state.files.push_back(
            {EKind::Signature, workplace.path() + s_signatureEnd, {}, workplace.signature()});
    if (auto record = bytesOf(workplace.path() + s_recordEnd))
        state.files.push_back({EKind::SigningRecord, workplace.path() + s_recordEnd, {}, std::move(record)});
    std::set<std::string> descriptors;
    std::set<std::string> modules;
    for (const auto& [driverID, source] : draft.sources) {
        const auto* pRecord = draft.found.find(source.entry.driverType, source.entry.version);
        if (pRecord && descriptors.insert(pRecord->file).second)
            state.files.push_back({EKind::Descriptor, pRecord->file, {}, bytesOf(pRecord->file)});
        if (source.module.isThere && modules.insert(source.module.path).second)
            state.files.push_back(
                {EKind::Module, source.module.path, source.module.digest(), bytesOf(source.module.path)});
    }
    return state;
}

std::vector<FileExchange::Change> changesBackTo(const WorkplaceState& state,
                                                const WorkplacePlanner::Settings& settings,
                                                std::vector<std::string>& notes, std::string& error) {
    std::vector<FileExchange::Change> changes;
    const File* pWorkplace = state.find(EKind::Workplace);
    if (!pWorkplace || !pWorkplace->bytes) {
        error = "the state has no workplace file";
        return changes;
    }
    for (const File& file : state.files) {
        const bool isModule = file.kind == EKind::Module;
        if (!isModule && file.kind != EKind::Descriptor)
            continue;
        const bool isSame = isModule && ModuleIdentity::of(file.path).digest() == file.identity;
        if (isSame || (file.bytes && bytesOf(file.path) == file.bytes))
            continue;
        if (const std::string why = obstacle(file, settings); why.empty())
            changes.push_back({file.path, file.bytes});
        else
            notes.push_back(file.path + " is another one now and is not given back: " + why);
    }
    const auto kept = [&](EKind kind) {
        const File* pFile = state.find(kind);
        return pFile ? pFile->bytes : std::nullopt;
    };
    addIfOther(changes, settings.file + s_recordEnd, kept(EKind::SigningRecord));
    addIfOther(changes, settings.file + s_signatureEnd, kept(EKind::Signature));
    addIfOther(changes, settings.file, pWorkplace->bytes);
    return changes;
}

void keepToOwnFiles(WorkplaceState& state, const WorkplacePlanner::Settings& settings) {
    std::erase_if(state.files, [&](const File& file) {
        const bool isDrivers = file.kind == EKind::Module || file.kind == EKind::Descriptor;
        return isDrivers && !isInDriverDirectory(file.path, settings.driverDirectories);
    });
    for (File& file : state.files) {
        if (file.kind == EKind::Workplace)
            file.path = settings.file;
        else if (file.kind == EKind::Signature)
            file.path = settings.file + s_signatureEnd;
        else if (file.kind == EKind::SigningRecord)
            file.path = settings.file + s_recordEnd;
    }
}
