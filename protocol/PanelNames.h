#pragma once

/// What the module and the host agree on about the panel driver, which is started whatever the configuration
/// says, and about what the module publishes in its name.
namespace protocol {

inline constexpr const char* panelDriverID = "PANEL";
/// The descriptor that is started as it.
inline constexpr const char* panelType = "Panel";
inline constexpr const char* panelVersion = "1.0";
/// Its working directory, below the host's.
inline constexpr const char* panelDirectory = "data/PANEL";

/// How many descriptors were found, as a state value.
inline constexpr const char* catalogueCountKey = "PANEL.MFDDEF.COUNT";
/// Before the number of a descriptor, counted from 0, and ".TYPE", ".VERSION", ".DESCRIPTION" or ".PREFIX".
inline constexpr const char* catalogueKey = "PANEL.MFDDEF";

}  // namespace protocol
