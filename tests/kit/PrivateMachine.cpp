#include "PrivateMachine.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::string failed(const std::string& call) {
    return "needs mount and network namespaces of its own: " + call + ": " + std::strerror(errno);
}

bool write(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    return file.good();
}

// /var/data may not exist and / may not be ours to write: /var becomes a fresh directory into which each real
// entry but data is bound.
std::string makeVar() {
    char kept[] = "/tmp/mfd-var-XXXXXX";
    if (!mkdtemp(kept))
        return failed("mkdtemp /tmp/mfd-var-XXXXXX");
    if (mount("/var", kept, nullptr, MS_BIND | MS_REC, nullptr) != 0)
        return failed("mount --rbind /var");
    if (mount("tmpfs", "/var", "tmpfs", 0, "mode=755") != 0)
        return failed("mount -t tmpfs /var");
    for (const auto& entry : fs::directory_iterator(kept)) {
        const std::string name = entry.path().filename();
        const fs::path place = "/var/" + name;
        if (name == "data")
            continue;
        if (entry.is_symlink()) {
            fs::copy_symlink(entry.path(), place);
        } else if (entry.is_directory()) {
            fs::create_directory(place);
            if (mount(entry.path().c_str(), place.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
                return failed("mount --rbind " + place.string());
        }
    }
    umount2(kept, MNT_DETACH);
    rmdir(kept);
    fs::create_directory("/var/data");
    return {};
}

std::string enterOnce() {
    const auto user = geteuid();
    const auto group = getegid();
    int flags = CLONE_NEWNS | CLONE_NEWNET;
    if (user != 0)
        flags |= CLONE_NEWUSER;
    if (unshare(flags) != 0 && (user != 0 || unshare(flags | CLONE_NEWUSER) != 0))
        return failed("unshare");
    if (getuid() != 0 || geteuid() != 0) {
        if (!write("/proc/self/setgroups", "deny") ||
            !write("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") ||
            !write("/proc/self/gid_map", "0 " + std::to_string(group) + " 1"))
            return failed("write /proc/self/uid_map");
    }
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return failed("mount --make-rprivate /");
    const std::string reason = makeVar();
    if (!reason.empty())
        return reason;
    if (mount("tmpfs", "/dev/shm", "tmpfs", 0, "mode=1777") != 0)
        return failed("mount -t tmpfs /dev/shm");
    if (!PrivateMachine::shell("ip link set lo up"))
        return "needs the command ip (package iproute2), and a network namespace that it may change";
    return {};
}

}  // namespace

std::string PrivateMachine::enter() {
    static const std::string s_reason = enterOnce();
    return s_reason;
}

std::string PrivateMachine::enterWithSmall(const std::string& directory, const std::string& size) {
    const std::string missing = enter();
    if (!missing.empty())
        return missing;
    return mount("tmpfs", directory.c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0 ? "" : "no tmpfs";
}

bool PrivateMachine::addAdapter(const std::string& name, const std::string& addresses) {
    if (!shell("ip link add " + name + " type veth peer name peer-" + name + " && ip link set peer-" + name +
               " up && ip link set " + name + " up"))
        return false;
    std::istringstream list(addresses);
    for (std::string address; list >> address;)
        if (!shell("ip address add " + address + " dev " + name))
            return false;
    return true;
}

std::string PrivateMachine::addresses(const std::string& adapter) {
    const std::string command = "ip -4 -o address show dev " + adapter;
    std::FILE* pOutput = popen(command.c_str(), "r");
    if (!pOutput)
        return {};
    std::string text;
    char buffer[512];
    while (std::fgets(buffer, sizeof buffer, pOutput))
        text += buffer;
    pclose(pOutput);

    std::string result;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        for (std::string word; words >> word;)
            if (word == "inet" && words >> word)
                result += (result.empty() ? "" : " ") + word;
    }
    return result;
}

bool PrivateMachine::shell(const std::string& command) {
    return std::system(command.c_str()) == 0;
}
