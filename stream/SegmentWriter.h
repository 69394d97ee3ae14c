#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "KeyNames.h"
#include "SegmentLayout.h"
#include "StreamRecord.h"
#include "UniqueFd.h"

struct ZSTD_CCtx_s;

namespace stream {

/// Appends records to a segment, a frame of them at a time. A frame is on the disk whole or not at all, as
/// far as the file system has it; what the disk has no room for is taken back, so that the next frame has a
/// place. Owned by the keeper; one thread.
class SegmentWriter {
public:
    /// A new file, 0600, whose name is on the disk when this returns. Null, and why, when there is one
    /// already or the system refuses; no file is left then.
    static std::unique_ptr<SegmentWriter> create(const std::string& path, std::string instance,
                                                 std::string& error);
    ~SegmentWriter();
    SegmentWriter(const SegmentWriter&) = delete;
    SegmentWriter& operator=(const SegmentWriter&) = delete;

    /// Puts the record into the frame that is being made, with what its numbers mean. In the order of their
    /// numbers. The frame is to be written when isFull() says so.
    void add(const StreamRecord& record, const KeyNames& names);
    bool isFull() const { return m_size >= s_frame; }
    bool isEmpty() const { return m_records == 0; }

    /// Writes the frame; empty, also where there is nothing to write. On a failure the text says why, and the
    /// frame is dropped.
    std::string writeFrame();
    /// What was written outlives a loss of power from now on. Empty, or why not.
    std::string sync();

    /// A frame that takes so much is full. What makes it takes about four times that of memory.
    static constexpr std::size_t s_frame = std::size_t{512} << 10;

    /// Bytes in the file.
    std::size_t size() const { return m_written; }
    const std::string& path() const { return m_path; }

private:
    struct FreeContext {
        void operator()(ZSTD_CCtx_s* pContext) const;
    };

    SegmentWriter(std::string path, std::string instance, base::UniqueFd file);
    void put(std::vector<std::uint64_t>& words, const StreamRecord& record);
    void define(std::uint32_t key, const KeyNames& names);
    void clear();

    const std::string m_path;
    const std::string m_instance;
    const base::UniqueFd m_file;
    const std::unique_ptr<ZSTD_CCtx_s, FreeContext> m_pContext;
    std::vector<std::uint64_t> m_definitions;
    std::vector<std::uint64_t> m_words;
    std::unordered_set<std::uint32_t> m_defined;
    std::size_t m_size = 0;  ///< of both
    std::size_t m_records = 0;
    FrameHead m_head;
    std::size_t m_written = 0;
};

}  // namespace stream
