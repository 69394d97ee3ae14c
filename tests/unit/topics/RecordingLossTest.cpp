#include <gmock/gmock.h>

#include <bit>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>

#include "../DiskTrace.h"
#include "../StreamFixture.h"
#include "BlackBox.h"
#include "ForkedProcess.h"
#include "Keeper.h"
#include "SegmentReader.h"

namespace fs = std::filesystem;
using Call = DiskTrace::Call;
using EKind = DiskTrace::EKind;
using EResult = stream::IStreamReader::EResult;

namespace {

constexpr std::size_t s_block = 4096;

/// By their paths.
using Files = std::map<std::string, std::string>;

/// A disk below one directory as a loss of power leaves it: what was synced is there; of the rest each block
/// may be there or not, and of the names of each directory those up to some moment.
class Disk {
public:
    explicit Disk(std::string root) { m_directories[std::move(root)]; }

    void apply(const Call& call) {
        switch (call.kind) {
            case EKind::MakeDirectory:
                m_directories[call.path];
                addName(call.path, {call.path, s_directory});
                break;
            case EKind::Create:
                addName(call.path, {call.path, m_files.size()});
                m_files.emplace_back();
                break;
            case EKind::Write:
                m_files.at(fileNow(call.path)).now += call.more;
                break;
            case EKind::Cut:
                m_files.at(fileNow(call.path)).now.resize(call.size);
                break;
            case EKind::SyncFile: {
                File& file = m_files.at(fileNow(call.path));
                file.safe = file.now;
                break;
            }
            case EKind::SyncDirectory: {
                Directory& directory = m_directories.at(call.path);
                directory.safe = namesAfter(directory, directory.changes.size());
                directory.changes.clear();
                break;
            }
            case EKind::Rename:
                addName(call.more, {call.more, fileNow(call.path), call.path});
                break;
            case EKind::Remove:
                addName(call.path, {{}, 0, call.path});
                break;
        }
    }

    /// How many blocks of all files may be there or not.
    std::size_t looseBlocks() const {
        std::size_t count = 0;
        for (const File& file : m_files)
            count += looseBlocksOf(file);
        return count;
    }
    /// What is found after a loss of power, if of each directory this share of the names is there that were
    /// not synced, and of the loose blocks those of the set bits, the rest never written, or, where the files
    /// are short, not even reserved.
    Files afterLoss(double namesShare, std::uint64_t blocks, bool areShort) const {
        std::vector<std::string> contents;
        for (const File& file : m_files) {
            const std::size_t loose = looseBlocksOf(file);
            contents.push_back(contentOf(file, blocks, areShort));
            blocks >>= loose;
        }
        Files found;
        std::set<std::string> there{m_directories.begin()->first};
        // A directory comes before what is in it.
        for (const auto& [path, directory] : m_directories) {
            if (there.count(path) == 0)
                continue;
            const auto changes =
                static_cast<std::size_t>(namesShare * static_cast<double>(directory.changes.size()));
            for (const auto& [name, file] : namesAfter(directory, changes)) {
                if (file == s_directory)
                    there.insert(name);
                else
                    found[name] = contents.at(file);
            }
        }
        return found;
    }

private:
    static constexpr std::size_t s_directory = ~std::size_t{0};
    struct File {
        std::string safe;
        std::string now;
    };
    using Names = std::map<std::string, std::size_t>;
    struct Change {
        std::string name;  ///< the new one; may be empty
        std::size_t file = 0;
        std::string goes = {};  ///< the one that is gone; may be empty
    };
    struct Directory {
        Names safe;
        std::vector<Change> changes;
    };

    void addName(const std::string& path, Change change) {
        m_directories.at(fs::path(path).parent_path()).changes.push_back(std::move(change));
    }
    static Names namesAfter(const Directory& directory, std::size_t count) {
        Names names = directory.safe;
        for (std::size_t i = 0; i < count; ++i) {
            const Change& change = directory.changes[i];
            names.erase(change.goes);
            if (!change.name.empty())
                names[change.name] = change.file;
        }
        return names;
    }
    std::size_t fileNow(const std::string& path) const {
        const Directory& directory = m_directories.at(fs::path(path).parent_path());
        return namesAfter(directory, directory.changes.size()).at(path);
    }
    static std::size_t firstLoose(const File& file) {
        const auto end = std::min(file.safe.size(), file.now.size());
        const auto differs = std::mismatch(file.now.begin(), file.now.begin() + end, file.safe.begin()).first;
        return static_cast<std::size_t>(differs - file.now.begin()) / s_block;
    }
    static std::size_t looseBlocksOf(const File& file) {
        if (file.now == file.safe)
            return 0;
        return (std::max(file.now.size(), file.safe.size()) + s_block - 1) / s_block - firstLoose(file);
    }
    static std::string contentOf(const File& file, std::uint64_t blocks, bool isShort) {
        std::string content = file.safe;
        std::size_t end = isShort ? 0 : file.now.size();
        content.resize(std::max(content.size(), file.now.size()));
        const std::size_t first = firstLoose(file);
        for (std::size_t i = 0; i < looseBlocksOf(file); ++i) {
            const std::size_t at = (first + i) * s_block;
            if ((blocks >> i & 1) == 0 || at >= file.now.size())
                continue;
            const std::size_t size = std::min(s_block, file.now.size() - at);
            content.replace(at, size, file.now, at, size);
            end = std::max(end, at + size);
        }
        content.resize(std::max(end, std::min(file.safe.size(), file.now.size())));
        return content;
    }

    std::vector<File> m_files;
    std::map<std::string, Directory> m_directories;
};

/// What a keeper and black boxes have put on a disk, when the machine loses its power or the process is
/// killed.
class RecordingLoss : public StreamFixture {
protected:
    /// What was told to be on the disk when so many calls had been made.
    struct Promise {
        std::size_t calls = 0;
        std::uint64_t number = 0;  ///< of a record in a segment; 0: of a black box
        std::string box;
    };
    using Tell = std::function<void(const Promise&)>;

    /// A quarter of a minute of a host: values, events and ends, segments that are full, two black boxes.
    void record(const std::string& root, std::size_t keep, const Tell& tell) {
        const auto pRing = ringOf({.path = {}, .sizes = {s_small, 4 * s_small}, .instance = "i1"});
        const stream::StreamSource source(*pRing);
        const Clock::time_point begin{std::chrono::seconds(1000)};
        std::string error;
        const auto pKeeper = Keeper::open({.directory = root + "/recording", .keep = keep, .segment = 20'000},
                                          source, {}, error);
        ASSERT_NE(pKeeper, nullptr) << error;
        for (int i = 0; i < 24; ++i) {
            pRing->write(at(10 * i), value(i));
            pRing->write(at(10 * i + 1), event(wordOfNoise(i, 6000)));
            const std::uint64_t number = pRing->write(at(10 * i + 2), exit("end " + std::to_string(i)));
            pKeeper->step(begin + i * std::chrono::milliseconds(600));
            tell({0, number, {}});
            if (i % 12 != 5)
                continue;
            const auto pBox =
                BlackBox::begin(source, number - 5, at(0), at(1'000'000), root + "/recording/blackbox",
                                BlackBox::nameOf(at(0), "A", "signal 9"), error);
            ASSERT_NE(pBox, nullptr) << error;
            ASSERT_EQ(pBox->step(), BlackBox::EState::Done) << pBox->text();
            tell({0, 0, pBox->text()});
        }
        m_expected.clear();
        const auto pReader = readerOf(source);
        for (const std::string& line : all(*pReader))
            m_expected[std::stoull(line)] = line;
    }
    /// The same, with what was told when.
    std::vector<Promise> trace(const std::string& root, std::size_t keep, std::vector<Call>& calls) {
        std::vector<Promise> promises;
        fs::create_directories(root);
        const DiskTrace trace(root);
        record(root, keep, [&](Promise promise) {
            promise.calls = trace.calls().size();
            promises.push_back(std::move(promise));
        });
        calls = trace.calls();
        return promises;
    }

    static std::vector<std::string> linesOf(const std::string& bytes) {
        std::string error;
        const auto pReader = stream::SegmentReader::ofBytes(bytes, error);
        return pReader ? all(*pReader) : std::vector<std::string>();
    }
    /// Which number a segment's name bears; 0 for another file.
    static unsigned long long numberOf(const fs::path& path) {
        return path.extension() == ".seg" && path.parent_path().filename() == "recording"
                   ? std::stoull(path.stem())
                   : 0;
    }
    /// What is wrong with what is found; empty where all is in order. Gaps are told by the reader only.
    std::string faultOf(const Files& files, const std::vector<Promise>& promises) const {
        std::uint64_t last = 0;
        std::set<std::uint64_t> found;
        for (const auto& [path, bytes] : files) {
            const bool isBox = path.find("/blackbox/") != std::string::npos && path.ends_with(".seg");
            if (!isBox && numberOf(path) == 0)
                continue;
            std::uint64_t lastOfBox = 0;
            const auto lines = linesOf(bytes);
            for (const std::string& line : lines) {
                if (line.starts_with("gap ")) {
                    if (isBox)
                        return path + " is not whole";
                    continue;
                }
                const std::uint64_t number = std::stoull(line);
                const auto expected = m_expected.find(number);
                if (expected == m_expected.end() || expected->second != line)
                    return path + " has a record that nobody wrote, " + std::to_string(number);
                std::uint64_t& before = isBox ? lastOfBox : last;
                if (number <= before)
                    return path + ": " + std::to_string(number) + " comes after " + std::to_string(before);
                before = number;
                if (!isBox)
                    found.insert(number);
            }
            if (isBox && lines.empty())
                return path + " is empty";
        }
        for (const Promise& promise : promises) {
            if (promise.number == 0 ? files.count(promise.box) == 0 : found.count(promise.number) == 0)
                return "without " + promise.box + std::to_string(promise.number);
        }
        return {};
    }
    static std::vector<Promise> promisedBy(const std::vector<Promise>& promises, std::size_t calls) {
        std::vector<Promise> found;
        for (const Promise& promise : promises) {
            if (promise.calls <= calls)
                found.push_back(promise);
        }
        return found;
    }

    static Files filesBelow(const std::string& root) {
        Files files;
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            if (!entry.is_regular_file())
                continue;
            std::ifstream file(entry.path(), std::ios::binary);
            files[entry.path()] = {std::istreambuf_iterator<char>(file), {}};
        }
        return files;
    }
    /// What the host does that is started next leaves all that is there, and comes after it.
    static std::string faultOfSuccessor(const std::string& root) {
        const auto linesBelow = [&] {
            std::vector<std::string> lines;
            for (const std::string& path : Keeper::segments(root + "/recording")) {
                std::ifstream file(path, std::ios::binary);
                const auto more = linesOf({std::istreambuf_iterator<char>(file), {}});
                lines.insert(lines.end(), more.begin(), more.end());
            }
            return lines;
        };
        auto before = linesBelow();
        const auto pRing = ringOf({.path = {}, .sizes = {s_small, s_small}, .instance = "i2"});
        const stream::StreamSource source(*pRing);
        std::string error;
        BlackBox::removeUnfinished(root + "/recording/blackbox");
        const auto pKeeper = Keeper::open({.directory = root + "/recording"}, source, {}, error);
        if (!pKeeper)
            return error;
        pRing->write(at(0), exit("next"));
        pKeeper->step(Clock::time_point(std::chrono::seconds(1000)));
        before.push_back("1:next");
        if (linesBelow() != before)
            return "the next host's record is not behind those that were there";
        for (const auto& [path, bytes] : filesBelow(root)) {
            if (path.ends_with(".part"))
                return path + " is left";
        }
        return {};
    }

    /// Printable, and hard to pack.
    static std::string wordOfNoise(int seed, std::size_t size) {
        std::mt19937 random(static_cast<unsigned int>(seed));
        std::string text(size, ' ');
        for (char& letter : text)
            letter = static_cast<char>('!' + random() % 90);
        return text;
    }

    TemporaryDirectory m_directory;
    std::map<std::uint64_t, std::string> m_expected;  ///< as all() has them, by number
};

constexpr std::size_t s_all = std::size_t{1} << 30;

}  // namespace

// Every prefix of the calls, and of the one frame that is not synced by then every subset of its blocks.
TEST_F(RecordingLoss, OfPowerAtAnyCallLosesNothingThatWasSyncedAndMakesNothingUp) {
    std::vector<Call> calls;
    const auto promises = trace(m_directory.path(), s_all, calls);
    ASSERT_GT(promises.size(), 20u);
    ASSERT_GT(calls.size(), 60u);
    Disk disk(m_directory.path());
    std::size_t states = 0;
    std::size_t loosest = 0;
    for (std::size_t done = 0; done <= calls.size(); ++done) {
        const auto promised = promisedBy(promises, done);
        const std::size_t loose = disk.looseBlocks();
        loosest = std::max(loosest, loose);
        ASSERT_LE(loose, 8u);
        for (const double names : {0.0, 0.5, 1.0}) {
            for (std::uint64_t blocks = 0; blocks < std::uint64_t{1} << loose; ++blocks) {
                for (const bool areShort : {false, true}) {
                    ++states;
                    ASSERT_EQ(faultOf(disk.afterLoss(names, blocks, areShort), promised), "")
                        << "after " << done << " calls, with names " << names << ", blocks " << blocks
                        << (areShort ? ", short" : "");
                }
            }
        }
        if (done < calls.size())
            disk.apply(calls[done]);
    }
    // There was something to lose.
    EXPECT_GE(loosest, 2u);
    EXPECT_GT(states, 500u);
}

TEST_F(RecordingLoss, OfPowerWhileTheOldestGoLosesNoNewerOnes) {
    std::vector<Call> calls;
    const auto promises = trace(m_directory.path(), 60'000, calls);
    Disk disk(m_directory.path());
    std::size_t removed = 0;
    for (std::size_t done = 0; done <= calls.size(); ++done) {
        const auto promised = promisedBy(promises, done);
        // What was told last is in a segment that stays.
        const std::vector<Promise> last(promised.end() - (promised.empty() ? 0 : 1), promised.end());
        for (const double names : {0.0, 0.3, 0.6, 1.0}) {
            for (const std::uint64_t blocks : {std::uint64_t{0}, ~std::uint64_t{0}})
                ASSERT_EQ(faultOf(disk.afterLoss(names, blocks, true), last), "") << "after " << done;
        }
        if (done < calls.size()) {
            removed += calls[done].kind == EKind::Remove ? 1 : 0;
            disk.apply(calls[done]);
        }
    }
    EXPECT_GE(removed, 2u);
}

TEST_F(RecordingLoss, OfPowerLeavesADirectoryThatTheNextHostGoesOnIn) {
    std::vector<Call> calls;
    trace(m_directory.path("first"), s_all, calls);
    const std::string next = m_directory.path("next");
    Disk disk(m_directory.path("first"));
    for (std::size_t done = 0; done <= calls.size(); ++done) {
        for (const std::uint64_t blocks : {std::uint64_t{1}, ~std::uint64_t{0}}) {
            fs::remove_all(next);
            fs::create_directories(next + "/recording");
            for (const auto& [path, bytes] : disk.afterLoss(1, blocks, false)) {
                const std::string copy = next + path.substr(m_directory.path("first").size());
                fs::create_directories(fs::path(copy).parent_path());
                std::ofstream(copy, std::ios::binary) << bytes;
            }
            ASSERT_EQ(faultOfSuccessor(next), "") << "after " << done << " calls";
        }
        if (done < calls.size())
            disk.apply(calls[done]);
    }
}

// Also half-way through each write.
TEST_F(RecordingLoss, OfTheProcessAtAnyCallLosesNothingThatWasWritten) {
    std::vector<Call> calls;
    trace(m_directory.path("first"), s_all, calls);
    ASSERT_GT(calls.size(), 60u);
    for (std::size_t death = 0; death < calls.size(); ++death) {
        const std::string root = m_directory.path("killed");
        fs::remove_all(root);
        fs::create_directories(root);
        std::vector<Promise> promises;
        {
            ForkedProcess child([&](const ForkedProcess::Side& side) {
                const DiskTrace trace(root, death);
                record(root, s_all, [&](const Promise& promise) {
                    side.tell(promise.number != 0 ? std::to_string(promise.number) : promise.box);
                });
                side.tell("it lived");
            });
            for (std::string line = child.hear(); !line.empty(); line = child.hear()) {
                ASSERT_NE(line, "it lived") << death;
                const bool isBox = line.starts_with('/');
                promises.push_back({0, isBox ? 0 : std::stoull(line), isBox ? line : std::string()});
            }
        }
        ASSERT_EQ(faultOf(filesBelow(root), promises), "") << "killed at call " << death;
        ASSERT_EQ(faultOfSuccessor(root), "") << "killed at call " << death;
    }
}
