// A real workplace under traffic and faults: says at the end what was lost, shown wrongly or left behind.
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
#include <string>

#include "../system/PrivateMachine.h"
#include "Chaos.h"
#include "Watchdog.h"

namespace fs = std::filesystem;

namespace {

constexpr int s_usageExit = 2;
constexpr int s_skippedExit = 77;

constexpr const char* s_usage =
    "usage: chaos [--minutes N] [--seed S] [--output DIR]\n"
    "  --minutes N   how long faults are injected (10); the end takes up to two minutes more\n"
    "  --seed S      which faults come, and in what order (from the clock)\n"
    "  --output DIR  where the scoreboard, the steps and the host's words are written (chaos, in the build "
    "tree)\n";

struct Options {
    double minutes = 10;
    std::uint32_t seed = 0;
    fs::path output = fs::path(MFD_BUILD_DIR) / "chaos";
};

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
        else if (name == "--output") {
            options.output = fs::absolute(value);
            isRight = !value.empty();
        }
        if (!isRight) {
            std::cerr << "chaos: " << name << " " << value
                      << " is wrong; minutes are a number from 1 to 240, a seed one from 0 to 4294967295\n"
                      << s_usage;
            return std::nullopt;
        }
    }
    return options;
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
    const auto time = std::chrono::seconds(std::lround(options.minutes * 60));
    std::cout << "chaos: " << time.count() << " s with the seed " << options.seed << "; "
              << options.output.string() << "/host.txt grows meanwhile" << std::endl;
    ChaosWorkplace workplace;
    const Watchdog watchdog(time + std::chrono::seconds(110), workplace.mark());
    Chaos chaos(workplace, {time, options.seed, options.output});
    const Scoreboard& board = chaos.run();
    std::ofstream file(options.output / "scoreboard.txt");
    for (std::ostream* pStream : {static_cast<std::ostream*>(&file), &std::cout}) {
        *pStream << "Chaos of " << time.count() << " s with the seed " << options.seed << ": "
                 << board.faults() << " faults at 20 drivers\nThe host runs with";
        for (const std::string& setting : ChaosWorkplace::settings())
            *pStream << " " << setting;
        *pStream << "; a driver in a process of its own takes 1 s to start\n";
        board.print(*pStream);
    }
    return board.complaints().empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const auto options = parse(argc, argv);
    if (!options)
        return s_usageExit;
    try {
        return run(*options);
    } catch (const std::exception& error) {
        std::cout << "chaos: " << error.what() << std::endl;
        return 1;
    }
}
