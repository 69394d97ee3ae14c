#include "DriverProgram.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace driverprogram {

bool isProgram(const std::string& modulePath) {
    struct stat status {};
    return !modulePath.ends_with(".so") && ::stat(modulePath.c_str(), &status) == 0 &&
           S_ISREG(status.st_mode) && ::access(modulePath.c_str(), X_OK) == 0;
}

std::string become(const std::string& modulePath, const std::string& driverID) {
    std::string program = modulePath;
    std::string argument = driverID;
    char* const words[] = {program.data(), argument.data(), nullptr};
    ::execv(modulePath.c_str(), words);
    // A script whose interpreter is missing is not there, either, as far as the system tells.
    return modulePath + " cannot be run: " + std::strerror(errno) +
           (errno == ENOENT ? "; is the interpreter of its first line (#!) there?" : "");
}

}  // namespace driverprogram
