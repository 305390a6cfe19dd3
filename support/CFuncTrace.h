#pragma once

// A guard that traces the entry into a function ("--> " and its name) and its exit ("<-- "). Both lines go to
// the plug-in's debug writer whatever the threshold, in one piece and without a line end. Lives on the stack
// of the function it traces.

#include "support/BasicString.h"

class CFuncTrace {
 public:
  explicit CFuncTrace(const BasicString& name);
  /// The same without making a string where nothing is traced: exported functions are called often.
  explicit CFuncTrace(const char* name);
  CFuncTrace(const CFuncTrace&) = delete;
  CFuncTrace& operator=(const CFuncTrace&) = delete;

  /// An exception on the way ends the program.
  ~CFuncTrace();

 private:
  void _log(const char* prefix) const;

  bool m_isTraced;
  BasicString m_name;  ///< empty when nothing is traced
};
