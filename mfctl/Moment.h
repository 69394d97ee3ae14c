#pragma once

#include <string>

#include "StreamRecord.h"

/// The moment that an operator names: "14:03", "14:03:22.5" (the last time that it was so late), "2026-11-22
/// 14:03", "2026-11-22" (its beginning), all in local time; "2026-11-22T14:03:22Z" in UTC; "90s", "5m", "2h",
/// "3d" before now. Throws a ControlError (2) for any other text. Any thread.
stream::Time momentOf(const std::string& text, stream::Time now);
