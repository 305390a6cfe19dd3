#pragma once

// Which threads are the library's own: nobody else keeps anything on them. Any thread.

namespace foundation {

/// The calling thread is, from now on.
void markLibraryThread();
/// Whether the calling thread is one.
bool isLibraryThread();

}  // namespace foundation
