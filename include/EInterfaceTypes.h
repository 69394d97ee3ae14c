#pragma once

/// How a driver is reached. Configuration files say "direct", "queue", "socket"; the console says "Direct",
/// "Queue", "Socket"; any other text is None.
enum class EInterfaceTypes {
    None = 0,    ///< prepared, but not loaded
    Direct = 1,  ///< in the host's process
    Queue = 2,   ///< in a process of its own behind two message queues
    Socket = 3,  ///< accepted; prepared, but not loaded
};
