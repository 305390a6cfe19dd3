#pragma once

/// Marks what libzepfoundation.so exports; everything else stays inside the library.
#define FOUNDATION_EXPORT __attribute__((visibility("default")))
