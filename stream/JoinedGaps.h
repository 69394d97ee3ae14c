#pragma once

#include <memory>
#include <utility>

#include "StreamReader.h"

namespace stream {

/// A reader of rings for people: where one ring was lapped and the other was not, it tells all that is
/// missing there as one gap, after what the other ring has of that time. Owned by whoever reads; one thread.
class JoinedGaps final : public IStreamReader {
public:
    explicit JoinedGaps(std::unique_ptr<StreamReader> pReader) : m_pReader(std::move(pReader)) {}

    EResult next(Clock::time_point now) override;
    const StreamRecord& record() const override { return m_pReader->record(); }
    const StreamGap& gap() const override { return m_gap; }
    const KeyNames& names() const override { return m_pReader->names(); }
    StreamCursor cursor() const override { return m_pReader->cursor(); }

    /// As StreamReader has it.
    bool isWaiting() const { return m_pReader->isWaiting(); }

private:
    void add(const StreamGap& gap);
    EResult deliver();

    const std::unique_ptr<StreamReader> m_pReader;
    StreamGap m_sum;  ///< of a stretch that has not come to its end
    StreamGap m_gap;
};

}  // namespace stream
