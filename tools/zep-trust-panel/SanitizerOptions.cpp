// What the sanitizers would find here is the toolkit's: it releases little at the end of a process.

// The names are the sanitizers' own.
// NOLINTBEGIN(bugprone-reserved-identifier)

extern "C" {

__attribute__((visibility("default"))) const char* __asan_default_options() {
  return "detect_leaks=0";
}

__attribute__((visibility("default"))) const char* __tsan_default_options() {
  return "report_bugs=0";
}

}  // extern "C"

// NOLINTEND(bugprone-reserved-identifier)
