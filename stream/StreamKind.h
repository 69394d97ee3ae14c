#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace stream {

/// What a record is about. The numbers stand in rings and segments and never change; docs/stream.md says what
/// each kind carries.
enum class EKind : std::uint8_t {
    None = 0,

    // In the ring of values.
    Text = 1,   ///< a value became this text
    Float = 2,  ///< ... this number
    Int = 3,
    Bool = 4,
    Unset = 5,  ///< there is no such value any more

    // In the ring of everything else.
    Event = 16,
    Fid = 17,            ///< a FID on its way, written as its delivery begins
    FidEnd = 18,         ///< how one ended that was refused, threw or took long
    Command = 19,        ///< a command begins
    CommandEnd = 20,     ///< how it ended
    Start = 21,          ///< an instance of a driver runs
    Exit = 22,           ///< an instance has ended
    Hang = 23,           ///< it is judged to hang
    Restart = 24,        ///< the host will start it again, or gives it up
    Configuration = 25,  ///< a configuration call into a driver
    Log = 26,            ///< a line of the host's log
    Output = 27,         ///< a line that a driver process wrote to its standard error
    Stale = 28,          ///< a driver's values hold no longer
    Merged = 29,         ///< how much of a driver's reports was merged away, once a second
    Mark = 30,           ///< set by an operator, to be found again
    Wire = 31,           ///< a message as it is in a queue, on demand only

    // About the stream itself.
    Define = 40,  ///< the number of a text
    Counts = 41,  ///< how many records of each kind there were of a driver so far, once a second
    Gap = 42,     ///< what the keeper could not read any more; in segments only
};

enum class ERing : std::uint8_t {
    Values = 0,  ///< values: they may flood
    Audit = 1,   ///< everything else
};
constexpr std::size_t s_rings = 2;
/// Kinds have numbers below it.
constexpr std::size_t s_kinds = 64;

constexpr ERing ringOf(EKind kind) {
    return kind >= EKind::Text && kind <= EKind::Unset ? ERing::Values : ERing::Audit;
}
/// A value that was set, or that is unset.
constexpr bool isValue(EKind kind) {
    return ringOf(kind) == ERing::Values;
}

/// A driver, or an operator, may cause any number of these: they are kept to a share of the ring. The others
/// are rare, or the host's own.
constexpr bool isRationed(EKind kind) {
    switch (kind) {
        case EKind::Event:
        case EKind::Fid:
        case EKind::FidEnd:
        case EKind::Command:
        case EKind::CommandEnd:
        case EKind::Log:
        case EKind::Output:
        case EKind::Mark:
        case EKind::Wire:
            return true;
        default:
            return false;
    }
}

/// "fid", "exit"; all that values can become is "value". "unknown" for a number that is no kind.
std::string_view kindName(EKind kind);
/// The kinds of that name; none when nothing is called so.
std::vector<EKind> kindsNamed(std::string_view name);
/// All names, each once, in the order of the numbers.
std::vector<std::string_view> kindNames();

/// "values" or "audit".
std::string_view ringName(ERing ring);

}  // namespace stream
