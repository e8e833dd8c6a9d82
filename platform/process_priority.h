// How much of the machine a background job of this process may take: the scheduling class,
// the nice value and the I/O class of every thread, and the CPU time the process has spent.
//
// An indexer runs for hours beside whatever the user does; it must lose every contest for
// the processor and the disk. On Linux that is SCHED_IDLE (the thread runs only when nothing
// else wants the CPU), nice 19 (kept as a fallback where SCHED_IDLE is refused, and inherited
// by helpers that reset their policy) and the idle I/O class. A Windows port would enter the
// background mode of its threads (THREAD_MODE_BACKGROUND_BEGIN), which lowers both at once.
//
// The settings apply to every thread the process has when called and to every thread and
// child process started afterwards (they inherit them). Thread-safe.
#pragma once

#include <string>

namespace trovix::platform {

// Lowers the whole process to background priority. False with *error naming the steps the
// system refused; what it granted stays in effect (a refused I/O class leaves the CPU lowered).
bool EnterBackgroundPriority(std::string* error);

// The calling thread's priority as the system holds it now.
struct PriorityState {
  bool idle_cpu = false;  // scheduled only when the processor has nothing else to do
  int nice = 0;
  bool idle_io = false;   // its disk requests wait for everyone else's
};
PriorityState CurrentPriority();

// CPU seconds (user and system) of every thread of this process since it started. Helper
// processes are not counted: they are processes of their own.
double ProcessCpuSeconds();
// The same with the child processes: those that have ended and been waited for, and those
// still running (a pool's helpers live as long as the job, and do most of its reading). Reads
// /proc for the running ones: about as dear as opening a file per child.
double ProcessTreeCpuSeconds();

}  // namespace trovix::platform
