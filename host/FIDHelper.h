#pragma once

#include <string>

#include "sal/Export.h"

/// Splits the text of a FID at its first ".": "A.B.C" is the driver ID "A" and the function "B.C".
class SAL_API FIDHelper {
public:
    explicit FIDHelper(const std::string& fid);

    /// Whether there is a "." at all.
    bool hasFunction() const;
    /// The text before the first "."; all of it when there is none.
    std::string getDriverID() const;
    /// The text after the first ".", further dots included; empty when there is none.
    std::string getFunction() const;

private:
    std::string m_fid;
    std::string::size_type m_dot;
};
