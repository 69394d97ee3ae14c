#pragma once

#include <string>
#include <utility>

namespace mfd {

/// What a function that answers says to the sender: that it is done, or why it is not. A value.
class Answer {
public:
    static Answer done() { return Answer(EKind::Done, {}); }
    /// It was not begun, and nothing has changed; the reason for the end of "ON ignored, the lamp is hot".
    static Answer ignored(std::string reason) { return Answer(EKind::Ignored, std::move(reason)); }
    /// It was begun, and did not come to its end: "ON failed, the lamp does not answer".
    static Answer failed(std::string reason) { return Answer(EKind::Failed, std::move(reason)); }

    bool isDone() const { return m_kind == EKind::Done; }
    bool hasFailed() const { return m_kind == EKind::Failed; }
    const std::string& reason() const { return m_reason; }

private:
    enum class EKind { Done, Ignored, Failed };
    Answer(EKind kind, std::string reason) : m_kind(kind), m_reason(std::move(reason)) {}

    EKind m_kind;
    std::string m_reason;
};

}  // namespace mfd
