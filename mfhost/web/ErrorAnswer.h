#pragma once

#include <string>

#include "ApiCall.h"

/// {"error":{"code":...,"text":...}} with that status.
ApiAnswer errorAnswer(unsigned status, const std::string& code, const std::string& text);
