#pragma once

#include <string>
#include <vector>

#include "FileExchange.h"
#include "WorkplacePlanner.h"
#include "WorkplaceState.h"

/// How states of the workplace are kept and given back. Both read files; any thread.

/// What the draft's drivers are loaded from, to be kept.
WorkplaceState stateOf(const WorkplacePlanner::Draft& draft);

/// What has to be written for a kept state to stand on disk again: the workplace file and its signature at
/// their own place, whatever path the state names; descriptors and modules only in the driver directories,
/// and not where signatures are required, since nothing vouches for them. What is not given back is in notes,
/// a line each. Nothing, with the reason in error, where the state has no workplace file.
std::vector<FileExchange::Change> changesBackTo(const WorkplaceState& state,
                                                const WorkplacePlanner::Settings& settings,
                                                std::vector<std::string>& notes, std::string& error);

/// Has a kept state name the workplace file where it lies, and leaves out what lies in none of the driver
/// directories.
void keepToOwnFiles(WorkplaceState& state, const WorkplacePlanner::Settings& settings);
