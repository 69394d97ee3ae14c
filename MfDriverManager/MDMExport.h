#pragma once

/// Marks what the module shows to its host.
#define MDM_API __attribute__((visibility("default")))
