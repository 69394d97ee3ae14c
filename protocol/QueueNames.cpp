#include "QueueNames.h"

#include <string_view>

namespace protocol {
namespace {

constexpr std::string_view s_inputEnd = "_INQ";
constexpr std::string_view s_outputEnd = "_OUTQ";

std::string withoutEnd(const std::string& queue, std::string_view end) {
    return queue.ends_with(end) ? queue.substr(0, queue.size() - end.size()) : std::string();
}

}  // namespace

std::string inputQueue(const std::string& driverID) {
    return std::string(driverID).append(s_inputEnd);
}

std::string outputQueue(const std::string& driverID) {
    return std::string(driverID).append(s_outputEnd);
}

std::string receiverOf(const std::string& queue) {
    return withoutEnd(queue, s_inputEnd);
}

std::string ownerOf(const std::string& queue) {
    const std::string receiver = receiverOf(queue);
    return receiver.empty() ? withoutEnd(queue, s_outputEnd) : receiver;
}

}  // namespace protocol
