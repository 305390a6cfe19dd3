#pragma once

/// Timers are known by number; their owner chooses it.
using TimerID = unsigned int;
