#include "RecordingExport.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <utility>

#include "ControlError.h"
#include "CsvText.h"
#include "McapWriter.h"
#include "RecordRedaction.h"
#include "RecordSchema.h"
#include "RegularFile.h"
#include "StreamText.h"
#include "UniqueFd.h"

namespace {

using stream::KeyNames;
using stream::StreamGap;
using stream::StreamRecord;

/// A new file, gone again unless it was kept; or standard output.
class Output {
public:
    Output(const Screen& screen, std::string path) : m_screen(screen), m_path(std::move(path)) {
        if (m_path.empty())
            return;
        m_file = base::UniqueFd(::open(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!m_file)
            fail();
        m_isToRemove = true;
    }
    ~Output() {
        if (m_isToRemove)
            ::unlink(m_path.c_str());
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(std::string_view bytes) {
        if (m_path.empty())
            m_screen.out << bytes;
        else
            m_pending += bytes;
        if (m_pending.size() >= s_block)
            flush();
    }
    void keep() {
        flush();
        if (!m_path.empty() && ::fsync(m_file.get()) != 0)
            fail();
        m_screen.out << std::flush;
        m_isToRemove = false;
    }

private:
    static constexpr std::size_t s_block = std::size_t{1} << 16;

    [[noreturn]] void fail() const {
        throw ControlError(EExit::Failed, m_path + ": " + std::strerror(errno));
    }
    void flush() {
        if (!m_pending.empty() && !base::writeAll(m_file.get(), m_pending))
            fail();
        m_pending.clear();
    }

    const Screen m_screen;
    const std::string m_path;
    base::UniqueFd m_file;
    std::string m_pending;
    bool m_isToRemove = false;
};

class IFormat {
public:
    virtual ~IFormat() = default;
    virtual void addRecord(const StreamRecord& record, const KeyNames& names) = 0;
    virtual void addGap(const StreamGap& gap) = 0;
    virtual void end() {}
};

class JsonLines : public IFormat {
public:
    explicit JsonLines(Output& output) : m_output(output) {}
    void addRecord(const StreamRecord& record, const KeyNames& names) override {
        stream::appendJson(m_line, record, names);
        write();
    }
    void addGap(const StreamGap& gap) override {
        stream::appendJson(m_line, gap);
        write();
    }

private:
    void write() {
        m_output.write(m_line + '\n');
        m_line.clear();
    }

    Output& m_output;
    std::string m_line;
};

class CsvRows : public IFormat {
public:
    explicit CsvRows(Output& output) : m_output(output) { m_output.write(csv::head()); }
    void addRecord(const StreamRecord& record, const KeyNames& names) override {
        m_output.write(csv::rowOf(record, names));
    }
    void addGap(const StreamGap& gap) override { m_output.write(csv::rowOf(gap)); }

private:
    Output& m_output;
};

/// A channel for each kind of records of a driver.
class McapChannels : public IFormat {
public:
    explicit McapChannels(Output& output)
        : m_writer([&output](std::string_view bytes) { output.write(bytes); }, "mfctl " MFCTL_VERSION) {}
    void addRecord(const StreamRecord& record, const KeyNames& names) override {
        stream::appendJson(m_json, record, names);
        write(names.driver(record.driver()), kindName(record.kind), record.number, record.time);
    }
    void addGap(const StreamGap& gap) override {
        stream::appendJson(m_json, gap);
        write("host", "gap", gap.first, gap.to);
    }
    void end() override { m_writer.end(); }

private:
    void write(const std::string& driver, std::string_view kind, std::uint64_t number, stream::Time time) {
        const auto nanoseconds = static_cast<std::uint64_t>(time.time_since_epoch().count());
        m_writer.addMessage(channelOf(driver, kind), static_cast<std::uint32_t>(number), nanoseconds, m_json);
        m_json.clear();
    }
    std::uint16_t channelOf(const std::string& driver, std::string_view kind) {
        std::string topic = '/' + driver + '/' + std::string(kind);
        const auto known = m_channels.find(topic);
        if (known != m_channels.end())
            return known->second;
        constexpr std::size_t most = 65'535;
        if (m_writer.channels() == most)
            throw ControlError(EExit::Failed,
                               "MCAP has no more than 65535 channels; --driver or --kind leaves some out");
        const auto [schema, isNew] = m_schemas.try_emplace(std::string(kind), std::uint16_t{0});
        if (isNew)
            schema->second = m_writer.addSchema("mf." + schema->first, "jsonschema", schemaOf(kind));
        const std::uint16_t channel = m_writer.addChannel(schema->second, topic, "json");
        m_channels.emplace(std::move(topic), channel);
        return channel;
    }

    McapWriter m_writer;
    std::map<std::string, std::uint16_t> m_schemas;   ///< by kind
    std::map<std::string, std::uint16_t> m_channels;  ///< by topic
    std::string m_json;
};

std::unique_ptr<IFormat> formatOf(const std::string& name, Output& output) {
    if (name == "mcap")
        return std::make_unique<McapChannels>(output);
    if (name == "csv")
        return std::make_unique<CsvRows>(output);
    return std::make_unique<JsonLines>(output);
}

}  // namespace

EExit RecordingExport::run(const RecordingFiles& files, const RecordingCommands::Choice& what,
                           const Choice& choice) {
    const bool isTerminal = m_screen.look.width != 0;
    if (choice.format == "mcap" && choice.output.empty() && isTerminal)
        throw ControlError(EExit::WrongUsage, "MCAP is nothing for a terminal; --output FILE names a file");
    Output output(m_screen, choice.output);
    const auto pFormat = formatOf(choice.format, output);
    std::uint64_t records = 0;
    StreamRecord redacted;
    RecordingCommands(m_screen).read(
        files, what,
        [&](const stream::IStreamReader& reader) {
            ++records;
            if (!choice.isRedacted) {
                pFormat->addRecord(reader.record(), reader.names());
                return static_cast<bool>(m_screen.out);
            }
            redacted = reader.record();
            redact(redacted);
            pFormat->addRecord(redacted, reader.names());
            return static_cast<bool>(m_screen.out);
        },
        [&](const stream::IStreamReader& reader) {
            pFormat->addGap(reader.gap());
            return static_cast<bool>(m_screen.out);
        });
    pFormat->end();
    output.keep();
    if (!choice.output.empty())
        m_screen.out << records << (records == 1 ? " record" : " records") << " in " << choice.output
                     << std::endl;
    return m_screen.out ? EExit::Done : EExit::Failed;
}
