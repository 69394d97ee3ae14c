#pragma once

#include <optional>
#include <string>

/// One way to fail, written as a word and, where it takes one, a number: "crash", "exit 3", "sleep 2000".
class Fault {
public:
    /// What text names; nothing, with what would be right in error, when it names none.
    static std::optional<Fault> parse(const std::string& text, std::string& error);
    /// The words there are, with what each takes.
    static std::string words();

    /// Does it, on the calling thread. What comes back says whether the operation that fails here succeeds.
    bool strike() const;

    std::string text() const;

private:
    enum class EKind {
        Crash,
        Abort,
        Exit,
        Kill,
        Busy,
        Sleep,
        Throw,
        ThrowNumber,
        Fail,
        Fork,
        ForkAway,
        Exec,
        CloseLocks,
        IgnoreSignals,
        Print,
        PrintLog
    };
    struct Word;
    static const Word s_words[];

    Fault(EKind kind, int number) : m_kind(kind), m_number(number) {}

    EKind m_kind;
    int m_number;  ///< exit code, or milliseconds or mebibytes with 0 for ever
};
