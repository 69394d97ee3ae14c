#include "ModuleIdentity.h"

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string_view>
#include <vector>

#include "Digest.h"
#include "UniqueFd.h"

namespace {

/// More than a linker writes.
constexpr std::size_t s_mostHeaders = 256;
constexpr std::size_t s_longestNote = 64u << 10;

template <class Element>
std::vector<Element> readAt(int fd, std::uint64_t offset, std::size_t count) {
    std::vector<Element> elements(count);
    const std::size_t size = count * sizeof(Element);
    if (::pread(fd, elements.data(), size, static_cast<off_t>(offset)) != static_cast<ssize_t>(size))
        elements.clear();
    return elements;
}

std::string hexadecimal(std::string_view bytes) {
    static constexpr char s_digits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        text += s_digits[static_cast<unsigned char>(c) >> 4];
        text += s_digits[static_cast<unsigned char>(c) & 15];
    }
    return text;
}

std::size_t aligned(std::size_t size) {
    return (size + 3) & ~std::size_t{3};
}

/// The build ID of these notes; empty when none of them is one.
std::string buildIDOf(std::string_view notes) {
    while (notes.size() >= sizeof(ElfW(Nhdr))) {
        ElfW(Nhdr) header;
        std::memcpy(&header, notes.data(), sizeof header);
        notes.remove_prefix(sizeof header);
        const std::size_t nameSize = aligned(header.n_namesz);
        const std::size_t size = nameSize + aligned(header.n_descsz);
        if (size > notes.size())
            break;
        if (header.n_type == NT_GNU_BUILD_ID &&
            notes.substr(0, header.n_namesz) == std::string_view("GNU\0", 4))
            return hexadecimal(notes.substr(nameSize, header.n_descsz));
        notes.remove_prefix(size);
    }
    return {};
}

std::string readBuildID(int fd) {
    const auto header = readAt<ElfW(Ehdr)>(fd, 0, 1);
    if (header.empty() || std::memcmp(header[0].e_ident, ELFMAG, SELFMAG) != 0 ||
        header[0].e_phentsize != sizeof(ElfW(Phdr)) || header[0].e_phnum > s_mostHeaders)
        return {};
    for (const auto& segment : readAt<ElfW(Phdr)>(fd, header[0].e_phoff, header[0].e_phnum)) {
        if (segment.p_type != PT_NOTE || segment.p_filesz > s_longestNote)
            continue;
        const auto notes = readAt<char>(fd, segment.p_offset, segment.p_filesz);
        if (std::string id = buildIDOf({notes.data(), notes.size()}); !id.empty())
            return id;
    }
    return {};
}

}  // namespace

ModuleIdentity ModuleIdentity::of(const std::string& path) {
    ModuleIdentity identity;
    identity.path = path;
    const base::UniqueFd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return identity;
    identity.isThere = true;
    identity.buildID = readBuildID(file.get());
    identity.size = static_cast<std::uint64_t>(status.st_size);
    identity.changed = status.st_mtim.tv_sec * 1'000'000'000LL + status.st_mtim.tv_nsec;
    return identity;
}

std::string ModuleIdentity::text() const {
    if (!isThere)
        return "missing";
    return (buildID.empty() ? "changed at " + std::to_string(changed) : "build " + buildID) + " of " +
           std::to_string(size) + " bytes";
}

std::string ModuleIdentity::digest() const {
    return sha256(text());
}
