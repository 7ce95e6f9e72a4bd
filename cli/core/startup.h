// Start-up hygiene: what a run must settle before it does anything else,
// because slotag is started from shells, scripts, cron and boot units that
// may leave the standard descriptors closed.
#pragma once

// Makes sure descriptors 0, 1 and 2 are open. A closed one is taken by
// /dev/null opened in the direction its user does not expect (standard input
// write-only, standard output and error read-only), so that any use of it
// fails as it would have on the closed descriptor, and no file the tool opens
// later (the log, the table, a pipe) can land on 0, 1 or 2 and receive text
// meant for a standard stream.
void reserve_standard_descriptors();
