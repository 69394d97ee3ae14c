#include "FileExchange.h"

#include <utility>

#include "FileReplacement.h"
#include "RegularFile.h"

std::string FileExchange::write(const Change& change) {
    const std::string reason =
        change.bytes ? base::replaceFile(change.path, *change.bytes) : base::removeFile(change.path);
    return reason.empty()
               ? reason
               : change.path + (change.bytes ? " cannot be written: " : " cannot be removed: ") + reason;
}

std::string FileExchange::perform(const std::vector<Change>& changes) {
    m_before.clear();
    for (const Change& change : changes) {
        auto before = base::RegularFile::read(change.path);
        const bool isThere = before.fault != base::RegularFile::EFault::NotOpened;
        // What cannot be read could not be put back.
        std::string reason =
            isThere && !before ? change.path + " cannot be replaced: it is " + before.reason : write(change);
        if (!reason.empty()) {
            if (const std::string left = takeBack(); !left.empty())
                reason += "; " + left;
            return reason;
        }
        m_before.push_back({change.path, isThere ? std::optional(std::move(before.bytes)) : std::nullopt});
    }
    return {};
}

std::string FileExchange::takeBack() {
    std::string reasons;
    for (; !m_before.empty(); m_before.pop_back()) {
        if (const std::string reason = write(m_before.back()); !reason.empty())
            reasons += (reasons.empty() ? "" : "; ") + reason;
    }
    return reasons;
}
