#include "httpPool/dllmain.h"

#include <dlfcn.h>

#include <memory>

#include "foundation/base/Trace.h"
#include "httpPool/Global.h"
#include "support/logstream.h"

CGlobal* g_pGlobal = nullptr;

namespace {

void WriteFoundationTrace(foundation::TraceLevel level, std::string_view text) {
  logstream line(static_cast<unsigned long>(level), "Unknown");
  static_cast<std::ostream&>(line) << text << std::endl;
}

__attribute__((constructor)) void initializer() {
  foundation::setTraceSink(&WriteFoundationTrace);
  if (!g_pGlobal) {
    g_pGlobal = new CGlobal;
  }
}

__attribute__((destructor)) void finalizer() {
  foundation::setTraceSink(nullptr);
  // Pools that are left, and the requests they run, are left to the process's end.
  const std::unique_ptr<CGlobal> registry(g_pGlobal);
  g_pGlobal = nullptr;
}

}  // namespace

void PinImage() {
  static bool s_isPinned = false;
  if (s_isPinned) {
    return;
  }
  Dl_info image{};
  // The handle is not needed: the pin outlives it.
  s_isPinned = dladdr(reinterpret_cast<const void*>(&PinImage), &image) != 0 &&
               dlopen(image.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE) != nullptr;
}
