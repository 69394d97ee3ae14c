// A host that can be killed: hollowhost MODULEPATH DRIVERID makes the queues, starts the driver process,
// completes its initialisation and prints its process ID. Then it obeys lines of standard input: "fid NAME"
// sends a FID without parameters, "deinit", "close" lets go of the queues; it goes on until the input ends.
// It never reads what the driver sends.
#include <iostream>
#include <string>

#include "HollowHost.h"
#include "sal/LogManager.h"

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    const sal::LogManager log;
    HollowHost host(argv[2]);
    if (!host.makeQueues())
        return 1;
    const int pid = host.startWrapper(argv[1]);
    if (pid == 0 || !host.send("INTCMP"))
        return 1;
    std::cout << pid << std::endl;

    std::string line;
    while (std::getline(std::cin, line)) {
        if (line == "close")
            host.closeQueues();
        else if (line == "deinit")
            host.send("DEINIT");
        else if (line.starts_with("fid "))
            host.send("SNDFDP" + std::string(1, static_cast<char>(line.size() - 4)) + line.substr(4) +
                      std::string(1, '\0'));
    }
    return 0;
}
