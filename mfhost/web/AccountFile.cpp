#include "AccountFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <string_view>
#include <utility>

#include "RegularFile.h"

AccountFile::AccountFile(std::string path) : m_path(std::move(path)) {}

std::string AccountFile::nameOf(unsigned number) {
    struct stat status {};
    const bool isThere = ::stat(m_path.c_str(), &status) == 0;
    if (!isThere && errno == ENOENT) {
        m_inode = 0;
        m_names.clear();
    } else if (isThere &&
               (status.st_ino != m_inode || status.st_mtim.tv_sec != m_changed.tv_sec ||
                status.st_mtim.tv_nsec != m_changed.tv_nsec) &&
               readAnew()) {
        m_inode = status.st_ino;
        m_changed = status.st_mtim;
    }
    const auto found = m_names.find(number);
    return found == m_names.end() ? std::string() : found->second;
}

/// Both files have "NAME:x:NUMBER:" in each line. False when the file cannot be read now, as without a free
/// descriptor: what was read before holds until it can.
bool AccountFile::readAnew() {
    const base::RegularFile file = base::RegularFile::read(m_path);
    if (file.fault == base::RegularFile::EFault::NotOpened ||
        file.fault == base::RegularFile::EFault::NotRead)
        return false;
    m_names.clear();
    std::string_view rest = file.bytes;
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        const auto first = line.find(':');
        const auto second = first == std::string_view::npos ? first : line.find(':', first + 1);
        if (first == 0 || second == std::string_view::npos)
            continue;
        unsigned number = 0;
        const std::string_view text = line.substr(second + 1, line.find(':', second + 1) - second - 1);
        const auto [pEnd, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        // The first of several names of one number is the one that others show, too.
        if (error == std::errc() && pEnd == text.data() + text.size())
            m_names.emplace(number, line.substr(0, first));
    }
    return true;
}
