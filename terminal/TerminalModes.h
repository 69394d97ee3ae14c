#pragma once

/// Notes the terminal's modes as the program finds them. Called by main, before anything changes them.
void rememberTerminalModes();

/// Gives the terminal the modes that were noted, for a way out that runs no destructors. Any thread.
void restoreTerminalModes();
