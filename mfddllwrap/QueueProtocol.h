#pragma once

#include <cstddef>
#include <string_view>

/// What host and driver process agree on: queue names, the message size and the codes that every message
/// begins with. docs/protocol.md has the byte tables.
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

}  // namespace protocol
