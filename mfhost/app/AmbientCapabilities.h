#pragma once

/// Keeps the capabilities that a service manager has given the host from what the host starts: the host keeps
/// its own, a driver process gets none. First thing in main, since it is of the calling thread, and threads
/// and processes inherit it. Does nothing where there are none.
void clearAmbientCapabilities();
