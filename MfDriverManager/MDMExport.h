#pragma once

/// Marks what the module shows to its host.
#define MDM_API __attribute__((visibility("default")))

/// Keeps an operation that belongs to a shown class to the module.
#define MDM_LOCAL __attribute__((visibility("hidden")))
