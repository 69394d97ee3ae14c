#pragma once

#include <string>

#include "JsonView.h"

/// Which command of a host is under way, for how long and in which call of which driver, as its health tells;
/// empty where none is. Main thread.
std::string heldUpText(const JsonView& health);
