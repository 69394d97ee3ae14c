#pragma once

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "IStreamReader.h"
#include "StreamReader.h"
#include "StreamRing.h"
#include "StreamSource.h"
#include "TemporaryDirectory.h"

/// What the tests of the stream share: small rings, what readers give as lines, and files that are damaged.
class StreamFixture : public testing::Test {
protected:
    using Clock = std::chrono::steady_clock;
    static constexpr std::size_t s_small = 64u << 10;

    /// 2026-11-22 14:03:22.181123 UTC and so many microseconds.
    static stream::Time at(std::int64_t microseconds) {
        return stream::Time(std::chrono::microseconds(1'795'356'202'181'123 + microseconds));
    }
    static stream::StreamRing::Settings small(std::string path = {}) {
        return {.path = std::move(path), .sizes = {s_small, s_small}, .instance = "i1"};
    }
    static std::unique_ptr<stream::StreamRing> ringOf(const stream::StreamRing::Settings& settings) {
        std::string error;
        auto pRing = stream::StreamRing::create(settings, at(0), error);
        EXPECT_NE(pRing, nullptr) << error;
        return pRing;
    }
    static stream::StreamEntry event(std::string_view text, std::uint16_t driver = 1) {
        return {
            .kind = stream::EKind::Event, .key = static_cast<std::uint32_t>(driver) << 16, .texts = {text}};
    }
    /// A kind that is not rationed.
    static stream::StreamEntry exit(std::string_view text) {
        return {.kind = stream::EKind::Exit, .key = 1u << 16, .texts = {text}};
    }
    static stream::StreamEntry value(std::int32_t number) {
        return {.kind = stream::EKind::Int, .key = 1u << 16 | 1, .value = static_cast<std::uint32_t>(number)};
    }

    static std::unique_ptr<stream::StreamReader> readerOf(
        const stream::StreamSource& source,
        const stream::StreamCursor& from = stream::StreamCursor::oldest()) {
        std::string error;
        auto pReader = stream::StreamReader::open(source, from, error);
        EXPECT_NE(pReader, nullptr) << error;
        return pReader;
    }

    /// What a reader gives up to the end, one word each: "7:text", or "gap 8-10" for a gap before 10.
    static std::vector<std::string> all(stream::IStreamReader& reader,
                                        Clock::time_point now = Clock::time_point()) {
        std::vector<std::string> found;
        for (;;) {
            switch (reader.next(now)) {
                case stream::IStreamReader::EResult::Record: {
                    const auto& record = reader.record();
                    found.push_back(
                        std::to_string(record.number) + ':' +
                        (record.kind == stream::EKind::Int ? std::to_string(record.value) : record.text));
                    break;
                }
                case stream::IStreamReader::EResult::Gap:
                    found.push_back("gap " + std::to_string(reader.gap().first) + '-' +
                                    std::to_string(reader.gap().next));
                    break;
                case stream::IStreamReader::EResult::Nothing:
                case stream::IStreamReader::EResult::End:
                    return found;
            }
        }
    }

    /// The file of a ring as it is now, as words.
    static std::vector<std::uint64_t> copyOf(const stream::StreamRing& ring) {
        std::vector<std::uint64_t> words(ring.fileSize() / sizeof(std::uint64_t));
        std::memcpy(words.data(), ring.base(), ring.fileSize());
        return words;
    }
    static std::unique_ptr<stream::StreamSource> sourceOf(std::vector<std::uint64_t> words) {
        std::string error;
        auto pSource = stream::StreamSource::ofBytes(std::move(words), error);
        EXPECT_NE(pSource, nullptr) << error;
        return pSource;
    }
    /// Where a place in a ring stands in such a file.
    static std::size_t wordOf(stream::ERing ring, std::uint64_t position) {
        return (stream::s_page + (ring == stream::ERing::Audit ? s_small : 0) + position % s_small) /
               sizeof(std::uint64_t);
    }
};
