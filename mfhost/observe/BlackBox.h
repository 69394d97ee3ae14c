#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "KeyNames.h"
#include "SegmentWriter.h"
#include "StreamReader.h"
#include "StreamSource.h"

/// Copies what a stream has of some time into a file of its own, a segment, a part of it with each step: what
/// came before a driver's end, and a little after it. Owned by the host's Recorder; one thread.
class BlackBox {
public:
    /// Everything from that number on up to that time. The source outlives it. The file gets its name, one
    /// that ends in .seg, when it is whole; another box of that name stays, and this one is numbered. Null,
    /// and why, when there is no such place in the stream or the directory cannot be written.
    static std::unique_ptr<BlackBox> begin(const stream::StreamSource& source, std::uint64_t firstNumber,
                                           stream::Time from, stream::Time to, const std::string& directory,
                                           const std::string& name, std::string& error);
    ~BlackBox();  ///< without a step that said so, nothing is kept
    BlackBox(const BlackBox&) = delete;
    BlackBox& operator=(const BlackBox&) = delete;

    enum class EState { Goes, Done, Failed };
    /// Copies some thousands of records. Done: the file is there, and outlives a loss of power.
    EState step();
    /// The file, or why there is none.
    const std::string& text() const { return m_text; }

    /// "20261122T140322Z-AXIS1-signal-9-Killed.seg".
    static std::string nameOf(stream::Time when, const std::string& driverID, const std::string& cause);
    /// Removes the oldest files of the directory beyond so many.
    static void keepNewest(const std::string& directory, std::size_t most);
    /// Those of the directory, oldest first.
    static std::vector<std::string> filesIn(const std::string& directory);
    /// Removes what a host that was killed has not brought to its end. For the one that has the directory
    /// now.
    static void removeUnfinished(const std::string& directory);

private:
    BlackBox(std::unique_ptr<stream::StreamReader> pReader, std::unique_ptr<stream::SegmentWriter> pSegment,
             stream::Time from, stream::Time to, std::string path);
    EState end(const std::string& fault);
    std::string freePath() const;

    const std::unique_ptr<stream::StreamReader> m_pReader;
    std::unique_ptr<stream::SegmentWriter> m_pSegment;
    const stream::Time m_from;
    const stream::Time m_to;
    const std::string m_path;
    std::string m_text;
};
