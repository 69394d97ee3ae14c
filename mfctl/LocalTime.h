#pragma once

#include <string>

/// A time as the host tells it ("2026-11-22T12:15:16.123Z") in the time zone of this process:
/// "2026-11-22 13:15:16". What is no such time stays as it is. Any thread.
std::string localTime(const std::string& time);

/// Only the time of the day: "13:15:16".
std::string localTimeOfDay(const std::string& time);
