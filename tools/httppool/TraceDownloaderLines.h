// What the lines of a downloader's own thread mean for its request. Any thread; keeps nothing.
#pragma once

#include "TraceLine.h"
#include "TraceRecord.h"
#include "TraceRequest.h"

namespace httppool {

// Whether such a line comes from a downloader's thread, and so belongs to the request that the thread serves.
bool isDownloaderLine(TraceLine::Kind kind);
// Whether it may still come behind the final state of its request.
bool isTrailingLine(TraceLine::Kind kind);

void applyDownloaderLine(TraceRequest& request, const TraceLine& line, const TraceRecord& record);

}  // namespace httppool
