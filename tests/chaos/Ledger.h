#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>

/// What one instance of a talking driver has sent and heard, in a file that it has mapped: whatever ends the
/// process, nothing of it is lost. Made and written by the driver, under its own lock; read by the judge at
/// any time.
class Ledger {
public:
    /// FIDs to one driver that were sent whole, one after the other within half a second. A sender numbers
    /// its rounds: in each it sends one FID with the round's number to every driver.
    struct Sent {
        std::uint32_t target;  ///< index of the driver in the names that all are given
        std::uint32_t first;
        std::atomic<std::uint32_t> count;
        std::int64_t begun;              ///< when the first of them was about to be sent
        std::atomic<std::int64_t> done;  ///< when the last of them had been sent
    };
    /// FIDs of one sender that came one after the other within half a second.
    struct Heard {
        std::uint32_t sender;  ///< number of the instance
        std::uint32_t first;
        std::atomic<std::uint32_t> count;
        std::int64_t begun;              ///< when the first of them came
        std::atomic<std::int64_t> done;  ///< when the last of them came
    };
    /// How long an entry goes on, in nanoseconds.
    static constexpr std::int64_t s_entryTime = 500'000'000;
    static constexpr std::uint32_t s_capacity = 200000;

    struct Page {
        std::atomic<std::uint32_t> isWhole;
        std::uint32_t instance;
        std::uint32_t driver;  ///< index in the names
        std::int32_t pid;
        std::uint32_t isInHost;           ///< it runs in the host's process: what it sends is there at once
        std::int64_t created;             ///< when the ledger was made
        std::atomic<std::int64_t> ready;  ///< when it could be reached; 0 before
        /// Of what it has heard: the latest moment at which any of it was about to be sent. All that stood
        /// in its queue by then it has taken.
        std::atomic<std::int64_t> horizon;
        std::atomic<std::uint32_t> events;     ///< how many it has triggered
        std::atomic<std::uint32_t> state;      ///< the number that it has reported last
        std::atomic<std::uint32_t> isQuiet;    ///< it was told to send nothing any more, and sends nothing
        std::atomic<std::uint32_t> isStopped;  ///< it was told to stop
        std::atomic<std::uint32_t> isFull;     ///< there was no room to note something
        std::atomic<std::uint32_t> sentCount;
        std::atomic<std::uint32_t> heardCount;
        Sent sent[s_capacity];
        Heard heard[s_capacity];
    };

    /// Makes the ledger of a new instance in that directory, with a number that no other one there has.
    static Ledger create(const std::filesystem::path& directory, std::uint32_t driver);
    /// Opens what another process writes, to read. None when its driver was ended before it was whole.
    static Ledger open(const std::filesystem::path& file);

    Ledger() = default;
    ~Ledger();
    Ledger(Ledger&& other) noexcept;
    Ledger& operator=(Ledger&& other) noexcept;

    explicit operator bool() const { return m_pPage != nullptr; }
    Page* operator->() { return m_pPage; }
    const Page* operator->() const { return m_pPage; }

    /// Nanoseconds on the clock that all processes share.
    static std::int64_t now();

private:
    explicit Ledger(Page* pPage) : m_pPage(pPage) {}

    Page* m_pPage = nullptr;
};
