#pragma once

#include <sys/resource.h>

/// Raises the soft limit of descriptors to the hard one: a host of many drivers needs several for each.
/// Returns the soft limit as it was. Called by main, before anything is opened that needs it.
rlim_t raiseDescriptorLimit();

/// Has the kernel make its table of this process's descriptors long enough for many drivers, at most as long
/// as the soft limit. Once a process has a second thread, each doubling of that table holds up the thread
/// that opens a file for some 10 ms; the table never becomes shorter. Called by main while it is the only
/// thread.
void makeRoomForDescriptors();
