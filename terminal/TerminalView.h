#pragma once

#include <cstddef>

/// How the operator's terminal shows what is printed. Any thread.

/// How many columns the terminal at that descriptor has; 80 where it does not say.
std::size_t terminalWidth(int fd);

/// Whether texts may be coloured there: not where NO_COLOR is set, nor on a terminal that knows no colours.
bool hasTerminalColours();
