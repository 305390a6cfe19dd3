#pragma once

// The pool monitor: its switch, and its record of tasks that are older than their time-out. Both are files below the
// folder of the system's applications. Every failure is silent: without settings the monitor is off, and a record that
// cannot be written is lost. On the host's thread.

/// Whether the monitor is on. Exported; written by InitFeatureFlag() only, which the registry calls once, at load.
extern __attribute__((visibility("default"))) bool IS_MONITOR_POOL;

/// Sets the switch to what the settings file says: true when it is a property list with a dictionary whose member
/// "Taskmonitor" is true. Without a folder the switch stays as it is.
void InitFeatureFlag();

/// Whether that name has been recorded in this process. Names differ by case.
bool IsPoolTaskNameExisting(const char* name);
void AddPoolTaskName(const char* name);

/// Records a name that was not recorded before; a record that fails is not tried again. Nothing for null.
void RecordTimeoutPoolTask(const char* name);
/// Appends the date and the name, a line each, to the record file, which is made when its folder is there. Several
/// processes may record at the same time.
void DoRecordTimeoutPoolTask(const char* name);
