#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "ControlError.h"
#include "FidFields.h"
#include "KeyTable.h"
#include "Screen.h"
#include "SegmentWriter.h"
#include "StreamFixture.h"
#include "StreamWriter.h"
#include "TemporaryDirectory.h"

/// A host's rings in a file, written by the test, and a screen that is a text. Times are shown in UTC.
class RecordingFixture : public StreamFixture {
protected:
    RecordingFixture() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }

    std::string ringPath() const { return m_directory.path("stream.ring"); }
    /// A segment of the directory "recording" that has what the rings have from one number to another, but
    /// for the definitions. Its path.
    std::string keep(const std::string& name, std::uint64_t first, std::uint64_t last) {
        std::filesystem::create_directories(
            std::filesystem::path(m_directory.path("recording/" + name)).parent_path());
        const std::string path = m_directory.path("recording/" + name);
        std::string error;
        const auto pSegment = stream::SegmentWriter::create(path, m_pRing->instance(), error);
        EXPECT_NE(nullptr, pSegment) << error;
        const stream::StreamSource source(*m_pRing);
        const auto pReader = readerOf(source);
        while (pReader->next({}) == stream::IStreamReader::EResult::Record) {
            const auto& record = pReader->record();
            if (record.number >= first && record.number <= last && record.kind != stream::EKind::Define)
                pSegment->add(record, pReader->names());
        }
        EXPECT_EQ("", pSegment->writeFrame());
        return path;
    }
    /// The host ends; its file stays.
    void die() {
        m_pWriter.reset();
        m_pKeys.reset();
        m_pRing.reset();
    }
    /// Another host starts in its place.
    void startAnew(const std::string& instance) {
        die();
        stream::StreamRing::Settings settings = small(ringPath());
        settings.instance = instance;
        m_pRing = ringOf(settings);
        m_pKeys = std::make_unique<stream::KeyTable>(*m_pRing);
        m_pWriter = std::make_unique<stream::StreamWriter>(*m_pRing, *m_pKeys);
    }
    std::uint16_t driver(std::string_view id) { return m_pKeys->driver(id, at(0)); }
    stream::StreamWriter::Key key(std::string_view driverID, std::string_view name) {
        return {m_pKeys->key(driver(driverID), name, at(0)), name};
    }
    std::uint64_t fid(stream::Time when, std::string_view sender, std::string_view receiver,
                      std::string_view function, stream::EFidOutcome outcome = stream::EFidOutcome::Written) {
        stream::FidFields fields(function);
        fields.add("x", "5");
        return m_pWriter->fid(when, {.sender = driver(sender),
                                     .receiver = driver(receiver),
                                     .outcome = outcome,
                                     .fields = fields.bytes()});
    }
    /// The exit code and the text of the error that the operation throws.
    template <class Operation>
    static std::pair<EExit, std::string> errorOf(Operation operation) {
        try {
            operation();
        } catch (const ControlError& error) {
            return {error.exit(), error.what()};
        }
        return {EExit::Done, "no error"};
    }
    Screen screen() { return {m_out, m_err}; }
    std::string out() const { return m_out.str(); }
    std::string err() const { return m_err.str(); }

    TemporaryDirectory m_directory;
    std::unique_ptr<stream::StreamRing> m_pRing = ringOf(small(ringPath()));
    std::unique_ptr<stream::KeyTable> m_pKeys = std::make_unique<stream::KeyTable>(*m_pRing);
    std::unique_ptr<stream::StreamWriter> m_pWriter =
        std::make_unique<stream::StreamWriter>(*m_pRing, *m_pKeys);
    std::ostringstream m_out;
    std::ostringstream m_err;
};
