#pragma once

#include <string>

/// The adapter that a workplace may use as eth0 on a machine that has none of that kind: the first that is
/// up, else "lo". Empty when there is one named eth..., and when the system does not tell.
std::string standInAdapter();
