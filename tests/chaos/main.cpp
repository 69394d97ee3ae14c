// A real workplace under traffic and faults: says at the end what was lost, shown wrongly or left behind.
#include <signal.h>

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Campaign.h"
#include "Chaos.h"
#include "Intruder.h"
#include "Leftovers.h"
#include "PrivateMachine.h"
#include "Watchdog.h"

namespace fs = std::filesystem;

namespace {

constexpr int s_usageExit = 2;
constexpr int s_skippedExit = 77;
/// Lines of what the judge has found; the file has all.
constexpr int s_toldFindings = 20;
/// For the last faults and the judgment.
constexpr std::chrono::seconds s_endTime{180};
/// What a kill may take, with its share of a host's start, on a machine that others use too.
constexpr std::chrono::seconds s_killTime{20};

constexpr const char* s_usage =
    "usage: chaos [--minutes N] [--seed S] [--hang-timeout short|default] [--only WORDS | --without WORDS]\n"
    "             [--output DIR]\n"
    "       chaos --kills N [--seed S] [--intruder yes|no] [--output DIR]\n"
    "  --minutes N         how long faults are injected (10), and longer until each kind has come; the end "
    "takes\n"
    "                      up to two minutes more\n"
    "  --seed S            which faults come, and in what order (from the clock)\n"
    "  --hang-timeout WHICH  the host's time-outs short, so that many faults have room, or as they are by "
    "default\n"
    "                      (short)\n"
    "  --only WORDS        these kinds of faults alone, with commas between\n"
    "  --without WORDS     all kinds but these\n"
    "  --kills N           instead of faults for some minutes, so many kills and stops of hosts, drivers and "
    "trials,\n"
    "                      while the workplace file is rewritten, broken and put back\n"
    "  --intruder yes|no   another user interferes meanwhile (yes)\n"
    "  --output DIR        where the scoreboard, the steps and the host's words are written (chaos, in the "
    "build\n"
    "                      tree)\n";

struct Options {
    double minutes = 10;
    std::uint32_t seed = 0;
    fs::path output = fs::path(MFD_BUILD_DIR) / "chaos";
    ChaosWorkplace::ETimes times = ChaosWorkplace::ETimes::Short;
    std::vector<ChaosPlan::EKind> kinds = ChaosPlan::allKinds();
    std::uint32_t kills = 0;
    bool hasIntruder = true;
};

std::string kindWords() {
    std::string all;
    for (const ChaosPlan::EKind kind : ChaosPlan::allKinds())
        all += (all.empty() ? "" : ", ") + std::string(ChaosPlan::word(kind));
    return all;
}

/// Those that are named, or all others. Nothing, and a line, for a word that names none.
std::optional<std::vector<ChaosPlan::EKind>> readKinds(const std::string& words, bool isOnly) {
    std::set<ChaosPlan::EKind> named;
    std::istringstream list(words);
    for (std::string word; std::getline(list, word, ',');) {
        const auto kind = ChaosPlan::kindOf(word);
        if (!kind) {
            std::cerr << "chaos: \"" << word << "\" is no kind of fault; there are " << kindWords() << "\n";
            return std::nullopt;
        }
        named.insert(*kind);
    }
    std::vector<ChaosPlan::EKind> kinds = ChaosPlan::allKinds();
    std::erase_if(kinds, [&](ChaosPlan::EKind kind) { return named.contains(kind) != isOnly; });
    if (kinds.empty()) {
        std::cerr << "chaos: no kind of fault is left; there are " << kindWords() << "\n";
        return std::nullopt;
    }
    return kinds;
}

template <class Number>
bool read(const std::string& text, Number& number) {
    const auto [pEnd, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && pEnd == text.data() + text.size();
}

std::optional<Options> parse(int argc, char** argv) {
    Options options;
    options.seed =
        static_cast<std::uint32_t>(std::chrono::system_clock::now().time_since_epoch().count() / 1000);
    for (int i = 1; i < argc; i += 2) {
        const std::string name = argv[i];
        const std::string value = i + 1 < argc ? argv[i + 1] : "";
        bool isRight = false;
        if (name == "--minutes")
            isRight = read(value, options.minutes) && options.minutes >= 1 && options.minutes <= 240;
        else if (name == "--seed")
            isRight = read(value, options.seed);
        else if (name == "--kills")
            isRight = read(value, options.kills) && options.kills > 0;
        else if (name == "--intruder") {
            options.hasIntruder = value == "yes";
            isRight = value == "yes" || value == "no";
        } else if (name == "--hang-timeout") {
            isRight = value == "short" || value == "default";
            options.times =
                value == "default" ? ChaosWorkplace::ETimes::Default : ChaosWorkplace::ETimes::Short;
        } else if (name == "--only" || name == "--without") {
            const auto kinds = readKinds(value, name == "--only");
            if (!kinds)
                return std::nullopt;
            options.kinds = *kinds;
            isRight = true;
        } else if (name == "--output") {
            options.output = fs::absolute(value);
            isRight = !value.empty();
        }
        if (!isRight) {
            std::cerr << "chaos: " << name << " " << value
                      << " is wrong; minutes are a number from 1 to 240, a seed one from 0 to 4294967295, a "
                         "hang time-out is short or default\n"
                      << s_usage;
            return std::nullopt;
        }
    }
    return options;
}

/// For people and for the record.
int printed(const Scoreboard& board, const std::string& title, const ChaosWorkplace& workplace,
            const fs::path& output) {
    std::ofstream file(output / "scoreboard.txt");
    for (std::ostream* pStream : {static_cast<std::ostream*>(&file), &std::cout}) {
        *pStream << title << " at " << workplace.drivers().size() << " drivers\nThe host runs with";
        for (const std::string& setting : workplace.settings())
            *pStream << " " << setting;
        *pStream << "; a driver in a process of its own takes 1 s to start\n";
        board.print(*pStream);
    }
    if (board.complaints().empty())
        return 0;
    std::ifstream findings(output / "findings.txt");
    std::string line;
    for (int count = 0; count < s_toldFindings && std::getline(findings, line); ++count)
        std::cout << "  " << line << "\n";
    if (findings.peek() != std::ifstream::traits_type::eof())
        std::cout << "  ... and more in " << (output / "findings.txt").string() << "\n";
    std::cout << std::flush;
    return 1;
}

int runFaults(const Options& options) {
    const auto time = std::chrono::seconds(std::lround(options.minutes * 60));
    std::cout << "chaos: " << time.count() << " s with the seed " << options.seed << "; "
              << options.output.string() << "/host.txt grows meanwhile" << std::endl;
    ChaosWorkplace workplace(options.times);
    const Watchdog watchdog(2 * time + s_endTime, workplace.mark());
    Chaos chaos(workplace, {time, options.seed, options.kinds, options.output});
    const Scoreboard& board = chaos.run();
    return printed(board,
                   "Chaos of " + std::to_string(time.count()) + " s with the seed " +
                       std::to_string(options.seed) + ": " + std::to_string(board.faults()) + " faults",
                   workplace, options.output);
}

int runCampaign(const Options& options) {
    const std::string title =
        std::to_string(options.kills) + " kills and stops with the seed " + std::to_string(options.seed);
    std::cout << "chaos: " << title << "; " << options.output.string() << "/host.txt grows meanwhile"
              << std::endl;
    std::optional<Intruder> intruder;
    if (options.hasIntruder) {
        intruder.emplace(options.seed);
        if (!intruder->isUnprivileged()) {
            std::cout << "chaos: without another user: only root may become one" << std::endl;
            intruder.reset();
        } else {
            Leftovers::setHelper(intruder->pid());
        }
    }
    ChaosWorkplace workplace(options.times, Campaign::drivers());
    const Watchdog watchdog(options.kills * s_killTime + s_endTime, workplace.mark());
    Campaign campaign(workplace, intruder ? &*intruder : nullptr,
                      {options.kills, options.seed, options.output});
    return printed(campaign.run(), "Campaign of " + title, workplace, options.output);
}

int run(const Options& options) {
    fs::create_directories(options.output);
    for (const char* name : {"host.txt", "scoreboard.txt", "findings.txt"})
        fs::remove(options.output / name);
    // Before there is a second thread.
    std::string refusal = PrivateMachine::enter();
    if (refusal.empty() && !PrivateMachine::addAdapter("eth0", "192.0.2.10/24"))
        refusal = "needs a pair of virtual adapters";
    if (!refusal.empty()) {
        std::cout << "skipped: " << refusal << std::endl;
        return s_skippedExit;
    }
    return options.kills > 0 ? runCampaign(options) : runFaults(options);
}

}  // namespace

int main(int argc, char** argv) {
    const auto options = parse(argc, argv);
    if (!options)
        return s_usageExit;
    // A host may end while it is being written to.
    ::signal(SIGPIPE, SIG_IGN);
    try {
        return run(*options);
    } catch (const std::exception& error) {
        std::cout << "chaos: " << error.what() << std::endl;
        return 1;
    }
}
