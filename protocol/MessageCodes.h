#pragma once

#include <cstddef>
#include <string_view>

/// The six bytes that each message begins with, and how long it and its texts may be.
namespace protocol {

inline constexpr std::size_t maximumLength = 1024;
inline constexpr std::size_t codeLength = 6;
inline constexpr std::size_t maximumText = 255;

// Host to driver.
inline constexpr std::string_view setConfiguration = "SETCFG";
inline constexpr std::string_view subscribe = "SUBSCR";
inline constexpr std::string_view sendFID = "SNDFDP";
inline constexpr std::string_view createFIDList = "CRTFID";
inline constexpr std::string_view initializationCompleted = "INTCMP";
inline constexpr std::string_view showState = "SHOWST";
inline constexpr std::string_view deinitialize = "DEINIT";

// Driver to host.
inline constexpr std::string_view setStateValue = "SETVAL";
inline constexpr std::string_view setStateValueFloat = "SETVAF";
inline constexpr std::string_view setStateValueInt = "SETVAI";
inline constexpr std::string_view setStateValueBool = "SETVAB";
inline constexpr std::string_view unsetStateValue = "UNSVAL";
inline constexpr std::string_view triggerEvent = "TRIGGR";
inline constexpr std::string_view executeCommand = "SYSCMD";
inline constexpr std::string_view dispatchFID = "DSPFID";

/// Put by a driver process into its own input queue, to wake the thread that receives. No code of the host's.
inline constexpr std::string_view wakeUp = "WAKEUP";

}  // namespace protocol
