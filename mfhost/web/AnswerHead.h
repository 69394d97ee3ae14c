#pragma once

#include <chrono>
#include <string>

#include "ApiCall.h"

/// The first lines of an answer, with the empty one after them, as HTTP/1.1 has them. closes: the connection
/// ends after it. isVersion10: for a client that speaks HTTP/1.0.
std::string answerHead(const ApiAnswer& answer, bool closes, std::chrono::system_clock::time_point now,
                       bool isVersion10 = false);
