// The other end of a queue, in a process of its own that a test may stop or kill at any instant. It tells
// what it does in lines on standard output and ends with the process that started it.

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "NumberedMessage.h"
#include "sal/MessageQueue.h"

namespace {

void say(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

int fail(const std::string& line) {
    say(line);
    return 1;
}

[[noreturn]] void waitToBeKilled() {
    for (;;) {
        ::pause();
    }
}

int create(const std::string& name) {
    sal::MessageQueue queue;
    if (!queue.create(name, 16384, 1024, 0)) {
        return fail("not created");
    }
    say("created");
    waitToBeKilled();
}

int hold(const std::string& name) {
    sal::MessageQueue queue;
    if (!queue.open(name)) {
        return fail("not opened");
    }
    say("opened");
    waitToBeKilled();
}

int tryOpen(const std::string& name) {
    sal::MessageQueue queue;
    if (!queue.open(name)) {
        return fail("not opened");
    }
    say("opened");
    return 0;
}

int send(const std::string& name, std::uint32_t sender, std::uint32_t count) {
    sal::MessageQueue queue;
    if (!queue.open(name)) {
        return fail("not opened");
    }
    say("opened");
    for (std::uint32_t number = 0; number < count; ++number) {
        const auto bytes = NumberedMessage{sender, number}.bytes();
        if (!queue.send(bytes.data(), static_cast<int>(bytes.size()), -1)) {
            return fail("not sent");
        }
    }
    say("sent");
    return 0;
}

/// Receives until it is killed or has seen a message that is not whole.
int receive(const std::string& name) {
    sal::MessageQueue queue;
    if (!queue.open(name)) {
        return fail("not opened");
    }
    say("opened");
    unsigned char buffer[NumberedMessage::s_maxSize];
    for (bool isFirst = true;; isFirst = false) {
        const int length = queue.receive(buffer, sizeof(buffer), -1);
        if (length < 0) {
            return fail("not received");
        }
        if (!NumberedMessage::read(buffer, length)) {
            return fail("torn");
        }
        if (isFirst) {
            say("received");
        }
    }
}

/// Attaches as the receiver, takes nothing out and waits.
int attach(const std::string& name) {
    sal::MessageQueue queue;
    unsigned char byte = 0;
    if (!queue.open(name) || queue.receive(&byte, 1, 1) >= 0) {
        return fail("not attached");
    }
    say("attached");
    waitToBeKilled();
}

/// The same, and waits for the creator's end before.
int outlive(const std::string& name) {
    sal::MessageQueue queue;
    unsigned char byte = 0;
    if (!queue.open(name) || queue.receive(&byte, 1, 1) >= 0) {
        return fail("not attached");
    }
    say("attached");
    if (!queue.waitForCreatorEnd()) {
        return fail("not watched");
    }
    say("ended");
    waitToBeKilled();
}

int waitForCreatorEnd(const std::string& name) {
    sal::MessageQueue queue;
    if (!queue.open(name)) {
        return fail("not opened");
    }
    say("opened");
    return queue.waitForCreatorEnd() ? (say("ended"), 0) : fail("not watched");
}

/// Fills a queue until it takes no more and empties it again: how many messages, or -1 when one was not
/// whole.
int fillAndEmpty(sal::MessageQueue& queue) {
    std::uint32_t sent = 0;
    for (;; ++sent) {
        const auto bytes = NumberedMessage{1, sent}.bytes();
        if (!queue.send(bytes.data(), static_cast<int>(bytes.size()), 0)) {
            break;
        }
    }
    unsigned char buffer[NumberedMessage::s_maxSize];
    for (std::uint32_t number = 0; number < sent; ++number) {
        const int length = queue.receive(buffer, sizeof(buffer), 0);
        const auto message = NumberedMessage::read(buffer, length);
        if (!message || message->number != number) {
            return -1;
        }
    }
    return static_cast<int>(sent);
}

/// Stops for the process that steps it: at the beginning of a call and at its end.
void stopHere() {
    std::raise(SIGSTOP);
}

int stepSend(const std::string& name) {
    sal::MessageQueue queue;
    const auto bytes = NumberedMessage{7, 0}.bytes();
    if (!queue.open(name) || ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        return 1;
    }
    stopHere();
    const bool isSent = queue.send(bytes.data(), static_cast<int>(bytes.size()), 0);
    stopHere();
    return isSent ? 0 : 1;
}

/// Has sent so many messages before that the queue favours it.
int stepSendFavoured(const std::string& name) {
    sal::MessageQueue queue;
    const auto bytes = NumberedMessage{7, 0}.bytes();
    if (!queue.open(name)) {
        return 1;
    }
    for (int i = 0; i < 300; ++i) {
        if (!queue.send(bytes.data(), static_cast<int>(bytes.size()), 0)) {
            return 1;
        }
    }
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        return 1;
    }
    stopHere();
    const bool isSent = queue.send(bytes.data(), static_cast<int>(bytes.size()), 0);
    stopHere();
    return isSent ? 0 : 1;
}

int stepReceive(const std::string& name) {
    sal::MessageQueue queue;
    unsigned char buffer[NumberedMessage::s_maxSize];
    if (!queue.open(name) || ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        return 1;
    }
    stopHere();
    const int length = queue.receive(buffer, sizeof(buffer), 0);
    stopHere();
    return NumberedMessage::read(buffer, length) ? 0 : 1;
}

int stepCreate(const std::string& name) {
    sal::MessageQueue queue;
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        return 1;
    }
    stopHere();
    const bool isMade = queue.create(name, 4, 1024, 0);
    stopHere();
    return isMade ? 0 : 1;
}

/// Sends without end from several threads, each with numbers of its own.
int flood(const std::string& name, std::uint32_t firstSender) {
    sal::MessageQueue queue;
    if (!queue.open(name)) {
        return fail("not opened");
    }
    say("opened");
    std::vector<std::thread> threads;
    for (std::uint32_t i = 0; i < 3; ++i) {
        threads.emplace_back([&queue, sender = firstSender + i] {
            for (std::uint32_t number = 0;; ++number) {
                const auto bytes = NumberedMessage{sender, number}.bytes();
                if (!queue.send(bytes.data(), static_cast<int>(bytes.size()), -1)) {
                    return;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return fail("not sent");
}

/// Attached like any other, and writes to the queue's memory what a driver gone wild might.
int scribble(const std::string& name, unsigned int seed) {
    sal::MessageQueue queue;
    const std::string file = std::string(std::getenv("MFD_QUEUE_DIR")) + "/" + name;
    const int descriptor = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
    struct stat info {};
    if (!queue.open(name) || descriptor < 0 || ::fstat(descriptor, &info) != 0) {
        return fail("not opened");
    }
    void* pMemory = ::mmap(nullptr, static_cast<std::size_t>(info.st_size), PROT_READ | PROT_WRITE,
                           MAP_SHARED, descriptor, 0);
    if (pMemory == MAP_FAILED) {
        return fail("not mapped");
    }
    say("opened");
    auto* pWords = static_cast<std::uint32_t*>(pMemory);
    std::mt19937 random(seed);
    // The header and the ring, which lead everywhere else, more often than the rest.
    const std::size_t header = 4096 / sizeof(std::uint32_t);
    const std::size_t all = static_cast<std::size_t>(info.st_size) / sizeof(std::uint32_t);
    for (int i = 0; i < 200; ++i) {
        const std::size_t word =
            random() % 4 == 0 ? random() % std::min<std::size_t>(all, 40000) : random() % header;
        const std::uint32_t value = random() % 2 == 0 ? random() : random() % 64;
        __atomic_store_n(pWords + word, value, __ATOMIC_RELAXED);
    }
    say("scribbled");
    return 0;
}

/// In a directory that is too small for a full queue.
int fill(const std::string& name) {
    sal::MessageQueue queue;
    if (!queue.create(name, 16384, 1024, 0)) {
        return fail("not created");
    }
    const int sent = fillAndEmpty(queue);
    if (sent <= 0 || sent >= 16384) {
        return fail("sent " + std::to_string(sent));
    }
    const auto bytes = NumberedMessage{1, 0}.bytes();
    if (!queue.send(bytes.data(), static_cast<int>(bytes.size()), 0)) {
        return fail("stays full");
    }
    say("filled and emptied");
    return 0;
}

/// As fill(); then waits until the queue has given its memory back, takes that away and fills the queue
/// again.
int refill(const std::string& name) {
    sal::MessageQueue queue;
    if (!queue.create(name, 16384, 1024, 0)) {
        return fail("not created");
    }
    const int before = fillAndEmpty(queue);
    const std::string directory = std::getenv("MFD_QUEUE_DIR");
    struct stat info {};
    for (int i = 0; i < 100; ++i) {
        unsigned char byte = 0;
        queue.receive(&byte, 1, 100);
        if (::stat((directory + "/" + name).c_str(), &info) == 0 && info.st_blocks * 512 <= 200 * 1024) {
            break;
        }
    }
    const int ballast = ::open((directory + "/ballast").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    while (::fallocate(ballast, 0, ::lseek(ballast, 0, SEEK_END), 4096) == 0) {
    }
    const int after = fillAndEmpty(queue);
    if (before <= 0 || after <= 0 || after >= before / 2) {
        return fail("sent " + std::to_string(before) + " and " + std::to_string(after));
    }
    say("refilled and emptied");
    return 0;
}

/// As in a container whose rules refuse the kernel's fences.
bool refuseFences() {
    const std::array<sock_filter, 4> filter{{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_membarrier, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    }};
    const sock_fprog program{filter.size(), const_cast<sock_filter*>(filter.data())};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (argc > 1 && std::string(argv[1]) == "without-fences") {
        // libsal has joined while it was loaded: it is loaded once more, with the rules in force.
        if (refuseFences()) {
            ::execv("/proc/self/exe", argv + 1);
        }
        return fail("no filter");
    }
    if (argc < 3) {
        return fail("usage: queue_peer COMMAND QUEUE [SENDER COUNT]");
    }
    const std::string command = argv[1];
    const std::string name = argv[2];
    if (command == "create") {
        return create(name);
    }
    if (command == "hold") {
        return hold(name);
    }
    if (command == "open") {
        return tryOpen(name);
    }
    if (command == "send" && argc == 5) {
        return send(name, static_cast<std::uint32_t>(std::strtoul(argv[3], nullptr, 10)),
                    static_cast<std::uint32_t>(std::strtoul(argv[4], nullptr, 10)));
    }
    if (command == "receive") {
        return receive(name);
    }
    if (command == "attach") {
        return attach(name);
    }
    if (command == "outlive") {
        return outlive(name);
    }
    if (command == "wait-creator-end") {
        return waitForCreatorEnd(name);
    }
    if (command == "step-send") {
        return stepSend(name);
    }
    if (command == "step-send-favoured") {
        return stepSendFavoured(name);
    }
    if (command == "step-receive") {
        return stepReceive(name);
    }
    if (command == "step-create") {
        return stepCreate(name);
    }
    if (command == "flood" && argc == 4) {
        return flood(name, static_cast<std::uint32_t>(std::strtoul(argv[3], nullptr, 10)));
    }
    if (command == "scribble" && argc == 4) {
        return scribble(name, static_cast<unsigned int>(std::strtoul(argv[3], nullptr, 10)));
    }
    if (command == "fill") {
        return fill(name);
    }
    if (command == "refill") {
        return refill(name);
    }
    return fail("unknown command " + command);
}
