// A host that defines the library's pointer to its registry itself, before it loads the library.
//
//   registry_host LIBRARY set|null
//
// Prints whether the pointer was left alone, and whether the monitor is on. Exit status: 0, or 2 when it is used
// wrongly.

#include <dlfcn.h>

#include <cstdio>
#include <cstring>

extern "C" {
__attribute__((visibility("default"))) void* g_pGlobal = nullptr;
}

int main(int argc, char** argv) {
  if (argc != 3) {
    return 2;
  }
  int somethingElse = 0;
  void* const before = std::strcmp(argv[2], "set") == 0 ? &somethingElse : nullptr;
  g_pGlobal = before;
  void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    return 2;
  }
  const bool isOn = *static_cast<bool*>(dlsym(library, "IS_MONITOR_POOL"));
  std::printf("%s, %s\n", g_pGlobal == before ? "left alone" : "made", isOn ? "on" : "off");
  if (before != nullptr) {
    // It is no registry, so it must not be deleted at the end.
    g_pGlobal = nullptr;
  }
  return 0;
}
