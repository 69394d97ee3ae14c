#pragma once

#include <memory>
#include <string>

#include "SegmentReader.h"
#include "StreamSource.h"

/// Opens what a recording is made of, without its host. Each throws a ControlError: 4 where the caller may
/// not read it, else 1. Main thread.

/// A file of rings, while a host writes it or after that.
std::unique_ptr<stream::StreamSource> openRing(const std::string& path);
/// A segment that a keeper has written.
std::unique_ptr<stream::SegmentReader> openSegment(const std::string& path);
