#include "foundation/base/LibraryThread.h"

namespace foundation {
namespace {

thread_local bool isMarked = false;

}  // namespace

void markLibraryThread() {
  isMarked = true;
}

bool isLibraryThread() {
  return isMarked;
}

}  // namespace foundation
