#pragma once

#include <string>
#include <string_view>

namespace base {

/// Puts these bytes in the file's place: another process that reads it, and a machine that starts after a
/// loss of power, finds the file from before or the new one, whole. The new one has the owner and the rights
/// of the file that is replaced; where there was none, what the process's umask leaves of 0644. Written as
/// PATH.part first. Empty on success; else the system's reason, and the file from before is in its place. Any
/// thread, but not two for one path.
std::string replaceFile(const std::string& path, std::string_view bytes);

/// Takes the file away, so that it stays away after a loss of power. A file that is not there is none to
/// complain of. Empty on success, else the system's reason. Any thread.
std::string removeFile(const std::string& path);

/// Has the names in the file's directory outlive a loss of power: one that was made, given or taken away
/// there. Empty on success, also where the file system knows no such call; else the directory and the
/// system's reason. Any thread.
std::string syncDirectoryOf(const std::string& path);

}  // namespace base
