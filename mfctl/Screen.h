#pragma once

#include <ostream>
#include <string>

#include "Table.h"

/// Where mfctl's answers go, and how they may look there. Main thread.
struct Screen {
    std::ostream& out;
    std::ostream& err;
    base::Table::Look look = {};

    /// Standard output and standard error of this process. A terminal sets the width; it is coloured unless
    /// NO_COLOR is set or TERM is "dumb".
    static Screen ofProcess();

    /// The text in a colour where the screen shows any. The text must be printable.
    std::string coloured(base::Table::EColour colour, const std::string& text) const;
    /// A line on standard error, made printable, after "mfctl: ".
    void complain(const std::string& text) const;
};
