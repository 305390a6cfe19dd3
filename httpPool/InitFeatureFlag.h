#pragma once

// The switch of the pool monitor. Exported; written by InitFeatureFlag() only, once, when the registry is
// made at load; read on the host's thread.

extern __attribute__((visibility("default"))) bool IS_MONITOR_POOL;

/// Sets the switch. The monitor is not part of this version, so it stays off.
void InitFeatureFlag();
