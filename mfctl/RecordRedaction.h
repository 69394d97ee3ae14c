#pragma once

#include "StreamRecord.h"

/// Takes out of a record what drivers and people wrote: texts of values and events, values of parameters,
/// commands and their answers, lines, marks, who asked, bytes of messages; "***" stands there. What stays:
/// times, drivers, names of values, functions and parameters, numbers, outcomes, and what the host itself
/// says of starts and ends. Any thread.
void redact(stream::StreamRecord& record);
