#pragma once

// What the plug-in has to say about its own settings: a line on standard error, written at once. Any thread.

namespace traceplugin {

/// "qlxtracedylib: VARIABLE: cannot use "value" (reason); consequence". The value is escaped.
void giveNotice(const char* variable, const char* value, const char* reason, const char* consequence);

}  // namespace traceplugin
