#include "TextDifference.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstring>

#include "ProgramOutput.h"
#include "RegularFile.h"
#include "UniqueFd.h"

namespace {

/// A file in memory; what reads it finds it by its descriptor, which its name tells.
base::UniqueFd inMemory(const std::string& text) {
    base::UniqueFd file(::memfd_create("mfctl", 0));
    if (file && !base::writeAll(file.get(), text))
        file.reset();
    return file;
}

std::string pathOf(const base::UniqueFd& file) {
    return "/proc/self/fd/" + std::to_string(file.get());
}

}  // namespace

std::string textDifference(const NamedText& before, const NamedText& after, std::string& error) {
    error.clear();
    const base::UniqueFd left = inMemory(before.text);
    const base::UniqueFd right = inMemory(after.text);
    if (!left || !right) {
        error = std::string("the texts cannot be compared: ") + std::strerror(errno);
        return {};
    }
    const ProgramOutput output = ProgramOutput::of(
        {"diff", "-u", "--label", before.name, "--label", after.name, pathOf(left), pathOf(right)});
    if (output.exitCode == 0 || output.exitCode == 1)
        return output.text;
    error = "the texts cannot be compared: " +
            (output.error.empty() ? "diff ended with " + std::to_string(output.exitCode) : output.error);
    return {};
}
