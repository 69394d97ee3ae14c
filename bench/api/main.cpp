#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

#include "Load.h"
#include "OwnServer.h"

// A steady load on a control socket: how many requests a second were answered, and how long that took.

namespace {

constexpr const char* s_usage =
    "usage: bench_api (PATH | --own BYTES) [--rate N] [--connections N] [--seconds S] [--target TARGET]\n"
    "  PATH         the control socket of a host\n"
    "  --own BYTES  one in this process that answers at once, with so many bytes\n"
    "  defaults: 1000 requests a second on 20 connections for 5 seconds, GET /api/v1/drivers\n";

double processorSeconds() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

int measure(int argc, char** argv) {
    Load::Settings settings;
    std::unique_ptr<OwnServer> pServer;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const bool isOption = word.starts_with("--");
        if (isOption && i + 1 == argc) {
            std::fputs(s_usage, stderr);
            return 2;
        }
        const char* pValue = isOption ? argv[++i] : argv[i];
        if (!isOption) {
            settings.path = word;
        } else if (word == "--own") {
            pServer = std::make_unique<OwnServer>(static_cast<std::size_t>(std::atoll(pValue)));
            settings.path = pServer->path();
        } else if (word == "--rate") {
            settings.perSecond = std::atoi(pValue);
        } else if (word == "--connections") {
            settings.connections = std::atoi(pValue);
        } else if (word == "--seconds") {
            settings.seconds = std::atof(pValue);
        } else if (word == "--target") {
            settings.requests = {{pValue}};
        } else {
            settings.perSecond = 0;
        }
    }
    if (settings.path.empty() || settings.perSecond <= 0 || settings.connections <= 0 ||
        settings.seconds <= 0) {
        std::fputs(s_usage, stderr);
        return 2;
    }
    const double before = processorSeconds();
    const Load::Result result = Load(settings).run();
    const double used = processorSeconds() - before;
    const auto percentile = [&](double share) {
        const auto& all = result.microseconds;
        return all.empty() ? 0 : all[static_cast<std::size_t>(share * static_cast<double>(all.size() - 1))];
    };
    std::printf(
        "%zu answered, %zu failed, %.0f requests/s; latency in us: 50 %% %.0f, 90 %% %.0f, 99 %% %.0f, "
        "99.9 %% %.0f, most %.0f; %.1f us of processor time %s a request\n",
        result.answered, result.failed, static_cast<double>(result.answered) / result.seconds,
        percentile(0.5), percentile(0.9), percentile(0.99), percentile(0.999), percentile(1),
        used * 1e6 / static_cast<double>(result.answered + result.failed),
        pServer ? "of client and server" : "of the client");
    if (result.failed == 0)
        return 0;
    std::fprintf(stderr, "bench_api: the first that failed: %s\n", result.firstFailure.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return measure(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_api: %s\n", error.what());
        return 1;
    }
}
