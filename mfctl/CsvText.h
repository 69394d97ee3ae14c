#pragma once

#include <string>

#include "IStreamReader.h"

/// Records as rows of comma-separated values (RFC 4180): number, time (UTC), kind, driver, key, value, text.
/// The value is that of a value or event, the text what mfctl monitor shows. Any thread.
namespace csv {

/// The first row.
std::string head();
std::string rowOf(const stream::StreamRecord& record, const stream::KeyNames& names);
std::string rowOf(const stream::StreamGap& gap);

}  // namespace csv
