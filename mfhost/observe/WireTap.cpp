#include "WireTap.h"

#include <algorithm>

#include "FidFields.h"
#include "MessageCodes.h"
#include "QueueNames.h"

namespace {

std::string_view messageOf(const unsigned char* data, int length) {
    return {reinterpret_cast<const char*>(data), static_cast<std::size_t>(length)};
}

/// The text that begins there, without its length; cut where it is not whole.
std::string_view textAt(std::string_view bytes) {
    return bytes.empty() ? bytes : bytes.substr(1, static_cast<unsigned char>(bytes.front()));
}

void putText(std::string& message, std::string_view text) {
    text = text.substr(0, protocol::maximumText);
    message += static_cast<char>(text.size());
    message += text;
}

}  // namespace

void WireTap::watch(const std::string& driverID, Clock::time_point until) {
    const std::lock_guard lock(m_mutex);
    m_until.insert_or_assign(driverID, until);
    m_isOn = true;
}

bool WireTap::isWatched(std::string_view driverID, Clock::time_point now) {
    const std::lock_guard lock(m_mutex);
    std::erase_if(m_until, [now](const auto& each) { return each.second <= now; });
    m_isOn = !m_until.empty();
    return m_until.contains(driverID);
}

void WireTap::sent(const std::string& queue, const unsigned char* data, int length, bool ok) {
    record(protocol::receiverOf(queue), messageOf(data, length), false, ok);
}

void WireTap::received(const std::string& queue, const unsigned char* data, int length) {
    const std::string driverID = protocol::ownerOf(queue);
    // What the host puts into an input queue it does not take out itself.
    if (protocol::receiverOf(queue).empty())
        record(driverID, messageOf(data, length), true, true);
}

void WireTap::record(std::string_view driverID, std::string_view message, bool isFromDriver, bool ok) {
    const auto now = Clock::now();
    if (driverID.empty() || !isWatched(driverID, now))
        return;
    const std::uint16_t number = m_observation.number(driverID);
    if (m_observation.isSpent(number)) {
        m_observation.addRefused(number, 1);
        return;
    }
    const std::string made = m_observation.secrets().empty() ? std::string() : masked(driverID, message);
    m_observation.stream().wire(m_observation.at(now), number, isFromDriver, ok,
                                made.empty() ? message : std::string_view(made));
}

/// The message without what is secret; empty where nothing in it may be.
std::string WireTap::masked(std::string_view driverID, std::string_view message) const {
    const std::string_view code = message.substr(0, protocol::codeLength);
    const std::string_view fields = message.substr(code.size());
    const SecretNames& secrets = m_observation.secrets();
    std::string made(code);
    if (code == protocol::sendFID || code == protocol::dispatchFID) {
        std::string fid(textAt(fields));
        if (code == protocol::sendFID)
            fid = std::string(driverID) + '.' + fid;
        made += stream::FidFields::masked(fields, [&](std::string_view parameter) {
                    return secrets.has(fid, parameter);
                }).bytes();
        return made;
    }
    if (code == protocol::executeCommand) {
        const std::string_view command = textAt(fields);
        putText(made, command);
        std::string room;
        putText(made,
                secrets.inLine(textAt(fields.substr(std::min(fields.size(), 1 + command.size()))), room));
        return made;
    }
    return {};
}
