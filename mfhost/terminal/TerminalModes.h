#pragma once

/// The terminal's modes as the program found them, to be given back on a way out that runs no destructors.
class TerminalModes {
public:
    /// Before anything changes them.
    static void remember();
    /// Any thread.
    static void restore();
};
