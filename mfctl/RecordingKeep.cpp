#include "RecordingKeep.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>

#include "ControlError.h"
#include "RecordingList.h"
#include "SegmentWriter.h"

namespace {

using EResult = stream::IStreamReader::EResult;

/// What was recorded last: of which host, and when.
struct Last {
    std::string instance;
    stream::Time time;
};

Last lastOf(const RecordingFiles& files) {
    RecordingReader reader(files, {});
    std::optional<Last> last;
    for (auto result = reader.next({}); result != EResult::End; result = reader.next({})) {
        if (result != EResult::Record)
            continue;
        const std::string instance = reader.cursor().instance;
        if (!last || last->instance != instance)
            last = Last{instance, reader.record().time};
        last->time = std::max(last->time, reader.record().time);
    }
    if (!last)
        throw ControlError(EExit::Failed, "nothing has been recorded that could be kept");
    return *last;
}

void throwUnless(const std::string& fault) {
    if (!fault.empty())
        throw ControlError(EExit::Failed, fault);
}

std::string nameOf(stream::Time time) {
    const time_t seconds = std::chrono::floor<std::chrono::seconds>(time).time_since_epoch().count();
    tm parts{};
    ::gmtime_r(&seconds, &parts);
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ.seg", &parts));
}

std::string pathIn(const std::string& directory, stream::Time time) {
    if (directory.empty())
        throw ControlError(EExit::WrongUsage,
                           "no directory is known to keep it in; --output FILE names a file");
    const std::string kept = directory + '/' + RecordingList::s_kept;
    if (::mkdir(kept.c_str(), 0700) != 0 && errno != EEXIST)
        throw ControlError(errno == EACCES ? EExit::NotAllowed : EExit::Failed,
                           kept + " cannot be made: " + std::strerror(errno));
    return kept + '/' + nameOf(time);
}

std::string userName() {
    const passwd* const pUser = ::getpwuid(::geteuid());
    std::string name = pUser ? pUser->pw_name : std::to_string(::geteuid());
    name.resize(std::min<std::size_t>(name.size(), 255));
    return name;
}

stream::StreamRecord markOf(const std::string& note, std::uint64_t number, stream::Time time) {
    stream::StreamRecord mark;
    mark.number = number;
    mark.time = time;
    mark.kind = stream::EKind::Mark;
    mark.value = static_cast<std::uint32_t>(stream::EOrigin::Console);
    const std::string user = userName();
    mark.text = static_cast<char>(user.size()) + user + note.substr(0, 1024);
    return mark;
}

}  // namespace

EExit RecordingKeep::run(const RecordingFiles& files, const std::string& directory, const Choice& choice) {
    const Last last = lastOf(files);
    const std::string path = choice.output.empty() ? pathIn(directory, last.time) : choice.output;
    std::string error;
    const auto pWriter = stream::SegmentWriter::create(path, last.instance, error);
    if (!pWriter)
        throw ControlError(EExit::Failed, error);
    RecordingReader reader(files, {last.time - std::chrono::seconds(choice.before), last.time});
    std::uint64_t records = 0;
    std::uint64_t number = 0;
    std::uint64_t missing = 0;
    for (auto result = reader.next({}); result != EResult::End; result = reader.next({})) {
        // A host that was started anew within the time begins with another minute.
        if (reader.cursor().instance != last.instance)
            continue;
        if (result == EResult::Gap) {
            missing += reader.gap().count;
            continue;
        }
        const stream::StreamRecord& record = reader.record();
        // What the numbers mean stands in each frame.
        if (record.kind == stream::EKind::Define)
            continue;
        pWriter->add(record, reader.names());
        number = record.number;
        ++records;
        if (pWriter->isFull())
            throwUnless(pWriter->writeFrame());
    }
    if (!choice.note.empty())
        pWriter->add(markOf(choice.note, number + 1, last.time), reader.names());
    throwUnless(pWriter->writeFrame());
    throwUnless(pWriter->sync());
    for (const std::string& fault : reader.faults())
        m_screen.complain(fault);
    if (missing > 0)
        m_screen.complain(std::to_string(missing) + " records of that time are missing");
    m_screen.out << records << (records == 1 ? " record" : " records") << " in " << path << std::endl;
    return EExit::Done;
}
