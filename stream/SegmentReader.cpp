#include "SegmentReader.h"

#include <zstd.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "Crc32c.h"
#include "Printable.h"
#include "RegularFile.h"
#include "StreamBody.h"

namespace stream {

std::unique_ptr<SegmentReader> SegmentReader::open(const std::string& path, std::string& error) {
    auto file = base::RegularFile::read(path, s_largest);
    if (!file) {
        error = base::quoted(path) + " cannot be read: " + file.reason;
        return nullptr;
    }
    auto pReader = ofBytes(std::move(file.bytes), error);
    if (!pReader)
        error = base::quoted(path) + ": " + error;
    return pReader;
}

std::unique_ptr<SegmentReader> SegmentReader::ofBytes(std::string bytes, std::string& error) {
    std::unique_ptr<SegmentReader> pReader(new SegmentReader(std::move(bytes)));
    if (!pReader->m_frames.empty())
        return pReader;
    error = "no recording is in it";
    return nullptr;
}

SegmentReader::SegmentReader(std::string bytes) : m_bytes(std::move(bytes)) {
    findFrames();
}

bool SegmentReader::headAt(std::size_t at, FrameHead& head) const {
    if (m_bytes.size() - at < sizeof head)
        return false;
    std::memcpy(&head, m_bytes.data() + at, sizeof head);
    return head.magic == FrameHead::s_magic &&
           head.check == crc32c(0, m_bytes.data() + at, sizeof head - sizeof head.check) &&
           head.packedSize <= FrameHead::s_most && head.size <= FrameHead::s_most &&
           head.size % sizeof(std::uint64_t) == 0;
}

void SegmentReader::findFrames() {
    const std::string_view magic(reinterpret_cast<const char*>(&FrameHead::s_magic),
                                 sizeof FrameHead::s_magic);
    std::size_t at = 0;
    bool isAfterDamage = false;
    while (at < m_bytes.size()) {
        Frame frame;
        const bool hasHead = headAt(at, frame.head);
        const std::size_t end = at + sizeof(FrameHead) + (hasHead ? frame.head.packedSize : 0);
        const bool isWhole = hasHead && end <= m_bytes.size() &&
                             frame.head.packedCheck ==
                                 crc32c(0, m_bytes.data() + at + sizeof(FrameHead), frame.head.packedSize);
        if (!isWhole) {
            isAfterDamage = true;
            at = std::min(m_bytes.find(magic, at + 1), m_bytes.size());
            continue;
        }
        frame.begin = at + sizeof(FrameHead);
        frame.isAfterDamage = std::exchange(isAfterDamage, false);
        m_frames.push_back(frame);
        at = end;
    }
    m_isTailDamaged = isAfterDamage;
    if (m_frames.empty())
        return;
    const FrameHead& first = m_frames.front().head;
    const FrameHead& last = m_frames.back().head;
    m_instance.assign(first.instance.data(), ::strnlen(first.instance.data(), first.instance.size()));
    m_firstNumber = first.firstNumber;
    m_lastNumber = last.lastNumber;
    m_firstTime = Time(std::chrono::nanoseconds(first.firstTime));
    m_lastTime = Time(std::chrono::nanoseconds(last.lastTime));
    for (const Frame& frame : m_frames)
        m_records += frame.head.records;
}

void SegmentReader::seek(Time from) {
    m_from = from;
    while (m_next < m_frames.size() && m_frames[m_next].head.lastTime < from.time_since_epoch().count())
        ++m_next;
}

bool SegmentReader::load(const Frame& frame) {
    m_words.resize(frame.head.size / sizeof(std::uint64_t));
    m_at = 0;
    m_left = frame.head.records;
    // What a frame's numbers mean stands in it.
    m_names.clear();
    const std::size_t size =
        ZSTD_decompress(m_words.data(), frame.head.size, m_bytes.data() + frame.begin, frame.head.packedSize);
    return ZSTD_isError(size) == 0 && size == frame.head.size;
}

bool SegmentReader::take() {
    while (m_left > 0 && m_words.size() - m_at >= layout::s_headWords) {
        const std::uint64_t* const pHead = m_words.data() + m_at;
        const std::size_t words = (layout::lengthOf(pHead[2]) + 7) / 8;
        m_at += layout::s_headWords;
        if (m_words.size() - m_at < words)
            return false;
        const char* const pBytes = reinterpret_cast<const char*>(m_words.data() + m_at);
        m_at += words;
        if (!StreamBody::unpack(pHead[1], pHead[2], pHead[3], pBytes, m_record))
            return false;
        if (m_record.number == 0) {
            m_names.learn(m_record);
            continue;
        }
        --m_left;
        m_names.learn(m_record);
        return true;
    }
    return false;
}

SegmentReader::EResult SegmentReader::deliverGap(const Frame& frame) {
    m_gap = StreamGap();
    m_gap.reason = StreamGap::EReason::Damaged;
    m_gap.first = m_lastGiven == 0 ? 0 : m_lastGiven + 1;
    m_gap.next = frame.head.firstNumber;
    m_gap.from = m_last;
    m_gap.to = Time(std::chrono::nanoseconds(frame.head.firstTime));
    m_isDamaged = false;
    return EResult::Gap;
}

SegmentReader::EResult SegmentReader::next(Clock::time_point) {
    for (;;) {
        if (take()) {
            if (m_record.time < m_from)
                continue;
            m_last = m_record.time;
            m_lastGiven = m_record.number;
            return EResult::Record;
        }
        m_isDamaged = m_isDamaged || m_left > 0;
        m_left = 0;
        if (m_next == m_frames.size())
            return EResult::End;
        Frame& frame = m_frames[m_next];
        if (std::exchange(frame.isAfterDamage, false) || m_isDamaged)
            return deliverGap(frame);
        ++m_next;
        if (!load(frame)) {
            m_left = 0;
            m_isDamaged = true;
        }
    }
}

StreamCursor SegmentReader::cursor() const {
    const std::uint64_t next = m_lastGiven != 0 ? m_lastGiven + 1 : m_firstNumber;
    return {StreamCursor::EPlace::Exact, m_instance, std::nullopt, next};
}

}  // namespace stream
