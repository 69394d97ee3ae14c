#pragma once

#include <list>
#include <string>

#include "sal/Export.h"
#include "sal/Path.h"

namespace sal {

/// A directory on disk, named by a path; it need not exist.
class SAL_API Directory {
public:
    enum EDirectorySortType { eSortByName = 0 };  ///< bytewise

    explicit Directory(const Path& path);

    /// Names of the regular files (and links to such) whose extension matches in any case, given without a
    /// dot. Empty when the directory cannot be read. Files that the program's filter refuses are left out.
    std::list<std::string> getFileList(std::string extension, EDirectorySortType sortType) const;

    /// Names of all entries but "." and "..". Empty when the directory cannot be read.
    std::list<std::string> getDirList(EDirectorySortType sortType) const;

    /// Makes the directory and its missing parents. True when it is there afterwards, also when it was
    /// before; false when something else stands there or the system refuses (logged with the system's
    /// reason).
    bool createDirectory() const;

    /// Called for each file that getFileList would name, with its full path; false leaves it out. Set once at
    /// start, before other threads list files.
    using FileFilter = bool (*)(const std::string& path);
    static void setFileFilter(FileFilter filter);

private:
    Path m_path;
};

}  // namespace sal
