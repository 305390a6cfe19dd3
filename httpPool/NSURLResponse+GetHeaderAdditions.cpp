#include <string>

#include "httpPool/NSURLResponse+GetHeaderAdditions.h"
#include "support/logstream.h"

void traceTrackingId(const foundation::URLResponse& response) {
  printHeadValue(response, "trackingID");
}

void printHeadValue(const foundation::URLResponse& response, std::string_view headName) {
  if (headName.empty() || !response.isHTTP()) {
    return;
  }
  const std::string* value = response.allHeaderFields().value(headName);
  if (!value || value->empty()) {
    return;
  }
  const bool hasHost = response.url() && !response.url()->host().empty();
  // The label is fixed, whichever name was looked up.
  logstream(QLX_LEVEL_INFO, "Unknown").l_value()
      << "-[NSURLResponse(GetHeaderAdditions) printHeadValue:]"
      << " "
      << "trackingID: " << *value << " from " << (hasHost ? response.url()->host().c_str() : " ")
      << std::endl;
}
