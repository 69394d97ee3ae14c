#pragma once

#include <string>

/// A machine of the test process's own, as far as drivers can tell: mount and network namespaces (and a user
/// namespace when the test does not run as root) with an empty /var/data and /dev/shm, lo up and no other
/// adapter. Children inherit it. Entered once per process, before it has a second thread; there is no way
/// back.
class PrivateMachine {
public:
    /// Empty when the process is in its private machine; else what is missing for one.
    static std::string enter();

    /// The same, with a file system of its own in place of the directory that holds no more than this, as
    /// "16k".
    static std::string enterWithSmall(const std::string& directory, const std::string& size);

    /// Adds the adapter (one end of a veth pair), up and with these addresses, each as "192.0.2.10/24". False
    /// when the kernel refuses.
    static bool addAdapter(const std::string& name, const std::string& addresses = "");

    /// The IPv4 addresses of an adapter as the kernel lists them: "192.0.2.10/24 192.0.2.20/24".
    static std::string addresses(const std::string& adapter);

    /// Runs a shell command; whether it succeeded.
    static bool shell(const std::string& command);
};
