#pragma once

#include <memory>

namespace foundation {

class ThreadRunLoop;

/// The calling thread's private run loop, if it has one.
const std::shared_ptr<ThreadRunLoop>& privateLoopOfThisThread();
/// `loop` stays the caller's and outlives the setting; null for none.
void setPrivateLoopOfThisThread(const std::shared_ptr<ThreadRunLoop>* loop);

}  // namespace foundation
