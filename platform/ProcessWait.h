#pragma once
// Free helpers around child processes: existence checks, a short wait and
// sleeps. POSIX only; used on the installation worker thread.

// True when signal 0 reaches pid or fails for any reason but ESRCH: a process
// of another user (EPERM) counts as existing, and so does a zombie.
bool IsProcessExist(int pid);

// Waits until IsProcessExist(pid) == exist. The wait lasts at most
// (msecs % 10) ms: a multiple of 10 tests once without sleeping. The updater
// launch has always waited this briefly and callers rely on nothing longer.
bool WaitProcess(int pid, int msecs, bool exist);

// nanosleep of msecs * 1000000 ns, not split into seconds: 1000 ms or more is
// an invalid time and returns at once. Callers pass values below 10.
void Sleep(int msecs);

// Gives up the processor for about a millisecond, so that a polling loop
// does not keep a core busy.
void yield();

// True while pid exists and has not yet exited: unlike IsProcessExist, a
// zombie (a child that ended and was not reaped) counts as gone. Used to
// notice an updater that died while the module waits for it.
bool IsProcessRunning(int pid);
