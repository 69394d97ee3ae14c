#pragma once

#include <string>

/// The body of an answer that is given piece by piece, as its client takes it, and may have no end. Owned by
/// the connection of the answer; API thread.
class IAnswerBody {
public:
    enum class ENext {
        AtOnce,  ///< there is more
        Later,   ///< nothing more for now
        End,     ///< this was all
    };
    struct Piece {
        std::string text;  ///< may be empty
        ENext next = ENext::End;
    };

    virtual ~IAnswerBody() = default;

    /// What comes next, once the client has taken what came before. Takes some ms at most; throws nothing.
    virtual Piece next() = 0;
};
