#pragma once

namespace foundation {

/// The deleter of a unique_ptr to a C library's object: calls the function that releases it.
template <auto Function>
struct Release {
  template <typename Object>
  void operator()(Object* object) const {
    Function(object);
  }
};

}  // namespace foundation
