#include "GarbageSender.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "QueueNames.h"
#include "sal/MessageQueue.h"

namespace {

constexpr std::uint32_t s_maxLength = 1024;
constexpr int s_patience = 2000;  ///< milliseconds for a place in the queue

/// What a driver process sends, what a host sends, and what neither does.
constexpr std::array<std::string_view, 11> s_codes{"SETVAL", "SETVAF", "SETVAI", "SETVAB", "UNSVAL", "TRIGGR",
                                                   "SYSCMD", "DSPFID", "DEINIT", "SNDFDP", "NOBODY"};

}  // namespace

bool GarbageSender::send(const std::string& driverID, int count) {
    sal::MessageQueue queue;
    if (!queue.open(protocol::outputQueue(driverID)))
        return false;
    for (int i = 0; i < count; ++i) {
        const auto bytes = message();
        if (!queue.send(bytes.data(), static_cast<int>(bytes.size()), s_patience))
            return false;
    }
    return true;
}

std::vector<unsigned char> GarbageSender::message() {
    std::vector<unsigned char> bytes(1 + below(s_maxLength));
    std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<unsigned char>(below(256)); });
    if (below(4) == 0)
        return bytes;
    const auto code = s_codes[below(s_codes.size())];
    std::copy_n(code.begin(), std::min(code.size(), bytes.size()), bytes.begin());
    // A length that reaches past the end.
    if (bytes.size() > code.size() && below(2) == 0)
        bytes[code.size()] = 255;
    return bytes;
}
