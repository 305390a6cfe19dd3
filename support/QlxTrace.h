#pragma once

// The way to the host's trace plug-in. The host ships it in its bundle: for an executable in X/MacOS it is
// X/PlugIns/qlxtracedylib.dylib. It is looked for once, at the first use of any function here, and stays
// loaded; without it nothing is traced and nothing is reported. Any thread; the plug-in's writers must be so
// too.

/// The trace levels, and the plug-in's writer of each; any other value goes to the debug writer.
inline constexpr unsigned long QLX_LEVEL_DEBUG = 1;    ///< QLXDEBUG
inline constexpr unsigned long QLX_LEVEL_INFO = 2;     ///< QLXINFO
inline constexpr unsigned long QLX_LEVEL_WARNING = 4;  ///< QLXWARN
inline constexpr unsigned long QLX_LEVEL_ERROR = 8;    ///< QLXERROR

/// The plug-in's threshold, its QlxGetTraceLevel; 1 without one.
unsigned long _getTraceLevel();  // NOLINT(bugprone-reserved-identifier): part of the interface

/// Whether a line of the level passes the threshold.
bool IsCanLog(const unsigned long& level);

/// Whether there is a writer for the level, so whether a line of it can reach anything at all.
bool qlxHasWriter(unsigned long level);

/// Hands text to the writer of the level, whatever the threshold, and returns what the writer returns; 0
/// without a writer or a text. The text is the writer's format and has no arguments. module and extra are not
/// used.
int QLXTRACERAWA(unsigned long level, const char* module, const char* extra, const char* text);
