#pragma once

#include <string>

/// What the console says to a word that is no command here, but is one elsewhere: "there is no command exit;
/// quit stops all drivers and ends the host". Empty for any other word. Any thread.
std::string commandHint(const std::string& word);
