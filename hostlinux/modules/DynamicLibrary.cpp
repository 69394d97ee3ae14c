#include "DynamicLibrary.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "ExceptionText.h"

namespace sal {
namespace {

/// How many DynamicLibrary objects hold each mapped library. The system gives one handle per library.
class UseCounts {
public:
    void add(void* handle) {
        const std::lock_guard lock(m_mutex);
        ++m_counts[handle];
    }
    /// How many are left.
    int remove(void* handle) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_counts.find(handle);
        const int left = --found->second;
        if (left == 0)
            m_counts.erase(found);
        return left;
    }

private:
    std::mutex m_mutex;
    std::map<void*, int> m_counts;
};

UseCounts& useCounts() {
    static UseCounts s_counts;
    return s_counts;
}

/// The loader's own words, without the path that they begin with.
std::string loaderError(const std::string& path) {
    const char* words = ::dlerror();
    std::string error = words ? words : "the dynamic loader gives no reason";
    if (error.starts_with(path + ": "))
        error.erase(0, path.size() + 2);
    return error;
}

/// The path in a spelling that was never used before in this process: the loader takes a known spelling for
/// the file that it has mapped already, whereas a new one makes it look at the file itself. The directory
/// stays the same, so $ORIGIN in the library means what it should.
std::string newSpelling(const std::string& path) {
    static std::atomic<unsigned int> s_number{0};
    const auto slash = path.rfind('/');
    std::string spelling = path.substr(0, slash + 1);
    for (unsigned int bits = ++s_number; bits != 0; bits >>= 1)
        spelling += bits & 1 ? ".//" : "./";
    return spelling + path.substr(slash + 1);
}

bool isKnownSpelling(const std::string& path) {
    void* handle = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL | RTLD_NOLOAD);
    ::dlerror();
    if (!handle)
        return false;
    ::dlclose(handle);
    return true;
}

/// What identifies a mapped library while others come and go.
struct Mapping {
    const link_map* pMap = nullptr;
    ElfW(Addr) address = 0;
    std::string name;
};

Mapping mappingOf(void* handle) {
    link_map* pMap = nullptr;
    if (::dlinfo(handle, RTLD_DI_LINKMAP, &pMap) != 0 || !pMap)
        return {};
    return {pMap, pMap->l_addr, pMap->l_name};
}

bool isMapped(const Mapping& mapping) {
    const auto compare = [](dl_phdr_info* pInfo, std::size_t, void* pWanted) {
        const auto& wanted = *static_cast<const Mapping*>(pWanted);
        return pInfo->dlpi_addr == wanted.address && wanted.name == pInfo->dlpi_name ? 1 : 0;
    };
    return ::dl_iterate_phdr(compare, const_cast<Mapping*>(&mapping)) != 0;
}

/// The entries of a library's dynamic section that tell why it stays.
class DynamicSection {
public:
    explicit DynamicSection(const link_map& map) : m_address(map.l_addr) {
        for (const ElfW(Dyn)* pEntry = map.l_ld; pEntry && pEntry->d_tag != DT_NULL; ++pEntry) {
            switch (pEntry->d_tag) {
                case DT_SYMTAB:
                    m_pSymbols = static_cast<const ElfW(Sym)*>(pointer(*pEntry));
                    break;
                case DT_STRTAB:
                    m_pNames = static_cast<const char*>(pointer(*pEntry));
                    break;
                case DT_GNU_HASH:
                    m_pHash = static_cast<const std::uint32_t*>(pointer(*pEntry));
                    break;
                case DT_FLAGS_1:
                    m_noDelete = (pEntry->d_un.d_val & DF_1_NODELETE) != 0;
                    break;
                default:
                    break;
            }
        }
    }

    bool noDelete() const { return m_noDelete; }

    /// Name of the first symbol that the library defines and that is bound once for the whole process.
    const char* uniqueSymbol() const {
        if (!m_pSymbols || !m_pNames || !m_pHash)
            return nullptr;
        const std::uint32_t count = symbolCount();
        for (std::uint32_t i = m_pHash[1]; i < count; ++i) {
            if (ELF64_ST_BIND(m_pSymbols[i].st_info) == STB_GNU_UNIQUE && m_pSymbols[i].st_shndx != SHN_UNDEF)
                return m_pNames + m_pSymbols[i].st_name;
        }
        return nullptr;
    }

private:
    /// Some systems leave the addresses in the section as they are in the file.
    const void* pointer(const ElfW(Dyn) & entry) const {
        const ElfW(Addr) address = entry.d_un.d_ptr;
        return reinterpret_cast<const void*>(address < m_address ? address + m_address : address);
    }

    /// The hash table holds bucket count, first symbol, filter size, filter shift; then the filter, the
    /// buckets, and one chain word for each symbol, odd at the end of a chain.
    std::uint32_t symbolCount() const {
        const std::uint32_t buckets = m_pHash[0];
        const std::uint32_t first = m_pHash[1];
        const std::uint32_t* pBuckets =
            m_pHash + 4 + m_pHash[2] * (sizeof(ElfW(Addr)) / sizeof(std::uint32_t));
        std::uint32_t last = 0;
        for (std::uint32_t i = 0; i < buckets; ++i)
            last = std::max(last, pBuckets[i]);
        if (last < first)
            return first;
        const std::uint32_t* pChains = pBuckets + buckets;
        while (!(pChains[last - first] & 1))
            ++last;
        return last + 1;
    }

    ElfW(Addr) m_address;
    const ElfW(Sym) * m_pSymbols = nullptr;
    const char* m_pNames = nullptr;
    const std::uint32_t* m_pHash = nullptr;
    bool m_noDelete = false;
};

std::string whyMapped(const link_map& map) {
    const DynamicSection section(map);
    if (section.noDelete())
        return "it is linked with -z nodelete";
    if (const char* symbol = section.uniqueSymbol())
        return "its symbol \"" + demangled(symbol) +
               "\" is unique in the process; compile the driver with -fno-gnu-unique";
    return "a thread that used it has a thread-local destructor of it pending, or another library needs it";
}

}  // namespace

DynamicLibrary::~DynamicLibrary() {
    close();
}

DynamicLibrary::DynamicLibrary(DynamicLibrary&& other) noexcept
    : m_handle(std::exchange(other.m_handle, nullptr)) {}

DynamicLibrary& DynamicLibrary::operator=(DynamicLibrary&& other) noexcept {
    std::swap(m_handle, other.m_handle);
    return *this;
}

bool DynamicLibrary::open(const std::string& path, std::string& error) {
    // The loader would wait for the writer of a named pipe.
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        error = "not a regular file";
        return false;
    }
    const std::string spelling = isKnownSpelling(path) ? newSpelling(path) : path;
    m_handle = ::dlopen(spelling.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!m_handle) {
        error = loaderError(spelling);
        return false;
    }
    useCounts().add(m_handle);
    return true;
}

void* DynamicLibrary::symbol(const char* name, std::string& error) const {
    const std::string path = mappingOf(m_handle).name;
    ::dlerror();
    void* address = ::dlsym(m_handle, name);
    if (!address)
        error = loaderError(path);
    return address;
}

std::string DynamicLibrary::close() {
    if (!m_handle)
        return {};
    void* handle = std::exchange(m_handle, nullptr);
    const Mapping mapping = mappingOf(handle);
    const int left = useCounts().remove(handle);
    if (::dlclose(handle) != 0)
        return loaderError(mapping.name);
    if (left > 0)
        return "another driver of the same file is loaded";
    return mapping.pMap && isMapped(mapping) ? whyMapped(*mapping.pMap) : std::string();
}

}  // namespace sal
