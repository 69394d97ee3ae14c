#include "StreamKind.h"

#include <algorithm>
#include <array>
#include <utility>

namespace stream {
namespace {

constexpr std::array<std::pair<EKind, std::string_view>, 24> s_names{{
    {EKind::Text, "value"},
    {EKind::Float, "value"},
    {EKind::Int, "value"},
    {EKind::Bool, "value"},
    {EKind::Unset, "value"},
    {EKind::Event, "event"},
    {EKind::Fid, "fid"},
    {EKind::FidEnd, "fid-end"},
    {EKind::Command, "command"},
    {EKind::CommandEnd, "command-end"},
    {EKind::Start, "start"},
    {EKind::Exit, "exit"},
    {EKind::Hang, "hang"},
    {EKind::Restart, "restart"},
    {EKind::Configuration, "configuration"},
    {EKind::Log, "log"},
    {EKind::Output, "output"},
    {EKind::Stale, "stale"},
    {EKind::Merged, "merged"},
    {EKind::Mark, "mark"},
    {EKind::Wire, "wire"},
    {EKind::Define, "define"},
    {EKind::Counts, "counts"},
    {EKind::Gap, "gap"},
}};

}  // namespace

std::string_view kindName(EKind kind) {
    for (const auto& [each, name] : s_names) {
        if (each == kind)
            return name;
    }
    return "unknown";
}

std::vector<EKind> kindsNamed(std::string_view name) {
    std::vector<EKind> kinds;
    for (const auto& [kind, each] : s_names) {
        if (each == name)
            kinds.push_back(kind);
    }
    return kinds;
}

std::vector<std::string_view> kindNames() {
    std::vector<std::string_view> names;
    for (const auto& [kind, name] : s_names) {
        if (std::find(names.begin(), names.end(), name) == names.end())
            names.push_back(name);
    }
    return names;
}

std::string_view ringName(ERing ring) {
    return ring == ERing::Values ? "values" : "audit";
}

}  // namespace stream
