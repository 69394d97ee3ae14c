#include "KeptFrame.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>

#include "StreamBody.h"

namespace {

using stream::StreamBody;
namespace layout = stream::layout;

constexpr std::size_t s_word = sizeof(std::uint64_t);
/// What is kept of room that was used: as much as a quiet workplace needs.
constexpr std::size_t s_keptRoom = std::size_t{128} << 10;
constexpr std::size_t s_leastSlots = 64;
constexpr std::size_t s_keptSlots = 4096;

std::uint64_t* mapRoom(std::size_t room) {
    void* const pRoom = ::mmap(nullptr, room, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pRoom == MAP_FAILED)
        throw std::bad_alloc();
    return static_cast<std::uint64_t*>(pRoom);
}

stream::StreamEntry entryOf(const stream::StreamRecord& record) {
    return {.kind = record.kind,
            .key = record.key,
            .value = record.value,
            .cause = record.cause,
            .keyText = record.keyText,
            .texts = {record.text}};
}

}  // namespace

void KeptFrame::Unmap::operator()(std::uint64_t* pWords) const {
    ::munmap(pWords, size);
}

KeptFrame::KeptFrame(std::size_t room)
    : m_room(room / s_word), m_pWords(mapRoom(room), Unmap{room}), m_values(s_leastSlots, s_none) {}

std::size_t KeptFrame::sizeOf(const stream::StreamRecord& record) {
    const std::size_t keyText =
        record.keyText.empty()
            ? 0
            : sizeof(std::uint16_t) + std::min(record.keyText.size(), StreamBody::s_longestKey);
    const std::size_t cause = record.cause == 0 ? 0 : sizeof record.cause;
    const std::size_t body = std::min(cause + keyText + record.text.size(), layout::s_longestBody);
    return layout::s_headSize + (body + s_word - 1) / s_word * s_word;
}

std::ptrdiff_t KeptFrame::growth(const stream::StreamRecord& record) const {
    auto size = static_cast<std::ptrdiff_t>(sizeOf(record));
    if (!stream::isValue(record.kind))
        return size;
    const std::uint32_t older = m_values[slotOf(record.key, record.keyText)];
    if (older != s_none)
        size -= static_cast<std::ptrdiff_t>(sizeAt(older) * s_word);
    return size;
}

bool KeptFrame::add(const stream::StreamRecord& record) {
    const std::size_t size = sizeOf(record) / s_word;
    // A record is moved at most so often as the room is larger than what is dead in it.
    if (m_used + size > m_room && m_dead >= m_room / 8)
        closeUp();
    if (m_used + size > m_room)
        return false;
    if (stream::isValue(record.kind)) {
        if (2 * (m_valueCount + 1) > m_values.size())
            index(2 * m_values.size());
        std::uint32_t& place = m_values[slotOf(record.key, record.keyText)];
        if (place == s_none) {
            ++m_valueCount;
        } else {
            m_pWords[place] = 1;
            m_dead += sizeAt(place);
        }
        place = static_cast<std::uint32_t>(m_used);
    }
    std::uint64_t* const pWords = m_pWords.get() + m_used;
    const StreamBody body = StreamBody::pack(entryOf(record), pWords + layout::s_headWords);
    const std::uint64_t flags = body.flags | (record.isCut ? layout::s_isCut : 0);
    pWords[0] = 0;
    pWords[1] = layout::timeAndKind(record.time, record.kind);
    pWords[2] = layout::numberLengthFlags(record.number, body.length, flags);
    pWords[3] = layout::keyAndValue(record.key, record.value);
    m_used += size;
    return true;
}

void KeptFrame::clear() {
    if (m_used * s_word > s_keptRoom)
        ::madvise(reinterpret_cast<char*>(m_pWords.get()) + s_keptRoom, m_room * s_word - s_keptRoom,
                  MADV_DONTNEED);
    m_used = 0;
    m_dead = 0;
    m_valueCount = 0;
    if (m_values.size() > s_keptSlots)
        m_values = std::vector<std::uint32_t>(s_leastSlots, s_none);
    else
        std::fill(m_values.begin(), m_values.end(), s_none);
}

std::size_t KeptFrame::sizeAt(std::size_t at) const {
    return layout::s_headWords + (layout::lengthOf(m_pWords[at + 2]) + s_word - 1) / s_word;
}

/// Whether there is one that no newer value has replaced.
bool KeptFrame::read(std::size_t at) {
    const std::uint64_t* const pWords = m_pWords.get() + at;
    return pWords[0] == 0 &&
           StreamBody::unpack(pWords[1], pWords[2], pWords[3],
                              reinterpret_cast<const char*>(pWords + layout::s_headWords), m_record);
}

std::string_view KeptFrame::keyTextAt(std::size_t at) const {
    const std::uint64_t flags = layout::flagsOf(m_pWords[at + 2]);
    if ((flags & layout::s_hasKeyText) == 0)
        return {};
    const char* pBytes = reinterpret_cast<const char*>(m_pWords.get() + at + layout::s_headWords);
    if ((flags & layout::s_hasCause) != 0)
        pBytes += sizeof(std::uint64_t);
    std::uint16_t length = 0;
    std::memcpy(&length, pBytes, sizeof length);
    return {pBytes + sizeof length, length};
}

/// That of the value, or the free one that it would have.
std::size_t KeptFrame::slotOf(std::uint32_t key, std::string_view keyText) const {
    const std::size_t mask = m_values.size() - 1;
    std::size_t slot = (key * std::size_t{0x9e3779b97f4a7c15} >> 32) ^ std::hash<std::string_view>()(keyText);
    for (;; ++slot) {
        const std::uint32_t at = m_values[slot & mask];
        if (at == s_none || (static_cast<std::uint32_t>(m_pWords[at + 3]) == key && keyTextAt(at) == keyText))
            return slot & mask;
    }
}

/// Over those that are replaced.
void KeptFrame::closeUp() {
    std::size_t to = 0;
    for (std::size_t at = 0; at < m_used;) {
        const std::size_t size = sizeAt(at);
        if (m_pWords[at] == 0) {
            std::memmove(m_pWords.get() + to, m_pWords.get() + at, size * s_word);
            to += size;
        }
        at += size;
    }
    m_used = to;
    m_dead = 0;
    index(m_values.size());
}

void KeptFrame::index(std::size_t slots) {
    m_values.assign(slots, s_none);
    for (std::size_t at = 0; at < m_used; at += sizeAt(at)) {
        if (m_pWords[at] != 0 || !stream::isValue(layout::kindOf(m_pWords[at + 1])))
            continue;
        const std::string_view keyText = keyTextAt(at);
        m_values[slotOf(static_cast<std::uint32_t>(m_pWords[at + 3]), keyText)] =
            static_cast<std::uint32_t>(at);
    }
}
