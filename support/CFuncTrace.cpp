#include "support/CFuncTrace.h"

#include "support/QlxTrace.h"

CFuncTrace::CFuncTrace(const BasicString& name) : CFuncTrace(name.c_str()) {
}

CFuncTrace::CFuncTrace(const char* name) : m_isTraced(qlxHasWriter(QLX_LEVEL_DEBUG)) {
  if (m_isTraced) {
    m_name = name;
    _log("--> ");
  }
}

CFuncTrace::~CFuncTrace() {
  if (m_isTraced) {
    _log("<-- ");
  }
}

void CFuncTrace::_log(const char* prefix) const {
  // No threshold and no pieces here, on purpose: the debug writer decides for itself.
  BasicString text(prefix);
  text += m_name;
  QLXTRACERAWA(QLX_LEVEL_DEBUG, nullptr, nullptr, text.c_str());
}
