// The sanitizers end a program that asks for more memory than there can be; these tests ask for it.

extern "C" {

__attribute__((visibility("default"))) const char* __asan_default_options() {
  return "allocator_may_return_null=1";
}

__attribute__((visibility("default"))) const char* __tsan_default_options() {
  return "allocator_may_return_null=1";
}

}  // extern "C"
