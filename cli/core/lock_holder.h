// Who holds the run lock: said before a companion command waits for it, so that an
// administrator sees at once which run to wait for or look into, instead of
// ten silent seconds.
#pragma once

// When another process holds the run lock, says so on standard error with
// its process ID and name. Only looks (F_GETLK): the lock is taken, with
// its waiting and its messages, by take_run_lock afterwards.
void tell_run_lock_holder();
