#pragma once

/// Marks what libsal shows to the host, the module and the drivers.
#define SAL_API __attribute__((visibility("default")))
