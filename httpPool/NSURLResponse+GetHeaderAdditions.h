#pragma once

// Writes what a response's header says about tracking to the trace. Free functions, any thread.

#include <string_view>

#include "foundation/url/URLResponse.h"

/// Traces the value of the header field "trackingID", if there is one.
void traceTrackingId(const foundation::URLResponse& response);

/// Traces the value of a header field, found without regard to case, and the host that sent it.
void printHeadValue(const foundation::URLResponse& response, std::string_view headName);
