#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

/// Three clients of libmosquitto beside the workplaces: one publishes a retained message, which the two
/// others read, as many as read a workplace's values, and sends a request to the first of these, which
/// answers, 25 times a second each; with the sizes that a link's messages have. Each has a thread, which ends
/// with the object.
class BareTraffic {
public:
    struct Sizes {
        std::size_t state = 0;
        std::size_t request = 0;
        std::size_t answer = 0;
    };
    struct Result {
        std::vector<std::uint32_t> publishes{};  ///< nanoseconds, one way
        std::vector<std::uint32_t> trips{};      ///< there and back
        double cpu = 0;                          ///< seconds, of all threads
        std::uint64_t messages = 0;              ///< that they have sent or taken
    };

    /// The users' names and their password.
    static constexpr const char* s_asker = "BARE1";
    static constexpr const char* s_answerer = "BARE2";
    static constexpr const char* s_reader = "BARE3";
    static constexpr const char* s_password = "bare";

    BareTraffic(int port, const Sizes& sizes);
    /// Ends it, and returns what was measured.
    Result stop();
    ~BareTraffic() { stop(); }
    BareTraffic(const BareTraffic&) = delete;
    BareTraffic& operator=(const BareTraffic&) = delete;

    /// Messages that they have sent or taken until now: as many as the broker has taken and given out.
    std::uint64_t messages() const { return m_messages; }
    /// Of all threads until now, which is not the workplaces' own.
    double cpu() const { return static_cast<double>(m_askerCpu + m_answererCpu + m_readerCpu) * 1e-9; }

private:
    void ask();
    void answer();
    void read();

    const int m_port;
    const Sizes m_sizes;
    Result m_result;
    std::atomic<bool> m_isStopping = false;
    std::atomic<bool> m_isAnswering = false;
    std::atomic<bool> m_isReading = false;
    std::atomic<std::int64_t> m_published = 0;  ///< when the last state was
    std::atomic<std::int64_t> m_askerCpu = 0;
    std::atomic<std::int64_t> m_answererCpu = 0;
    std::atomic<std::int64_t> m_readerCpu = 0;
    std::atomic<std::uint64_t> m_messages = 0;
    std::vector<std::uint32_t> m_publishes;  ///< of the answering thread
    std::vector<std::uint32_t> m_reads;      ///< of the reading one
    std::thread m_answerer;
    std::thread m_reader;
    std::thread m_asker;
};
