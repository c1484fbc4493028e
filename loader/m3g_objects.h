// Sequences of JSR 184 objects, which name earlier objects by their number.
#pragma once

#include "loader/loader_context.h"
#include "loader/stream.h"

// Both read objects into the context's table. False, with status and reason in the context, when the content is not
// accepted or memory runs out, and at once for a context that has failed before; objects that were complete by then
// stay in the table.

// byteCount: what the objects take up together by their own account.
bool M3gObjects_parseSequence(LoaderContext* context, SegmentStream* stream, uint32_t byteCount);
// A sequence with a check sum of four bytes behind it, which is not looked at.
bool M3gObjects_parseSegment(LoaderContext* context, const uint8_t* bytes, uint32_t length);
