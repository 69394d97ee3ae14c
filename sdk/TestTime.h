#pragma once

/// How the test kit moves the time of a driver, in either mode: the variable has the driver's timers stand
/// still, the function lets "ms" pass, the event tells with "number" that all which was due is done.
namespace mfd {

inline constexpr const char* s_testTimeVariable = "MFD_TEST_TIME";
inline constexpr const char* s_advanceFunction = "mfd.advance";
inline constexpr const char* s_advancedEvent = "mfd.advanced";

}  // namespace mfd
