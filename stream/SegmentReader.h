#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "IStreamReader.h"
#include "SegmentLayout.h"

namespace stream {

/// Reads a segment, also one that is torn or damaged: what is not whole is passed over and told as a gap.
/// That numbers are missing is none, since a keeper leaves values out. Owned by whoever reads; one thread.
class SegmentReader final : public IStreamReader {
public:
    /// The file as it is now. Null, and why, when it cannot be read or there is no frame in it.
    static std::unique_ptr<SegmentReader> open(const std::string& path, std::string& error);
    /// The same of a file's bytes.
    static std::unique_ptr<SegmentReader> ofBytes(std::string bytes, std::string& error);

    EResult next(Clock::time_point now) override;
    const StreamRecord& record() const override { return m_record; }
    const StreamGap& gap() const override { return m_gap; }
    const KeyNames& names() const override { return m_names; }
    StreamCursor cursor() const override;

    /// Of the first frame.
    const std::string& instance() const { return m_instance; }
    /// From the heads of all whole frames.
    Time firstTime() const { return m_firstTime; }
    Time lastTime() const { return m_lastTime; }
    std::uint64_t firstNumber() const { return m_firstNumber; }
    std::uint64_t lastNumber() const { return m_lastNumber; }
    std::uint64_t records() const { return m_records; }

    /// Goes on with the first record of that time or later. To be called before the first next().
    void seek(Time from);

    /// No keeper's segment is larger.
    static constexpr std::size_t s_largest = std::size_t{64} << 20;

private:
    struct Frame {
        std::size_t begin = 0;
        FrameHead head;
        bool isAfterDamage = false;
    };

    explicit SegmentReader(std::string bytes);
    void findFrames();
    bool headAt(std::size_t at, FrameHead& head) const;
    /// Unpacks the next frame; false when it is damaged.
    bool load(const Frame& frame);
    /// The next record of the frame; false at its end or where it is damaged.
    bool take();
    EResult deliverGap(const Frame& frame);

    const std::string m_bytes;
    std::vector<Frame> m_frames;
    std::string m_instance;
    Time m_firstTime;
    Time m_lastTime;
    std::uint64_t m_firstNumber = 0;
    std::uint64_t m_lastNumber = 0;
    std::uint64_t m_records = 0;

    std::size_t m_next = 0;  ///< frame
    std::vector<std::uint64_t> m_words;
    std::size_t m_at = 0;
    std::size_t m_left = 0;  ///< records that the frame still has
    Time m_from;
    Time m_last;
    std::uint64_t m_lastGiven = 0;
    bool m_isDamaged = false;
    bool m_isTailDamaged = false;
    StreamRecord m_record;
    StreamGap m_gap;
    KeyNames m_names;
};

}  // namespace stream
