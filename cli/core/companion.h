// What slotag's companion commands (slotag-show, slotag-locate) share on
// their way in and out. They run as root like slotag, keep no operation
// log, hold the run lock while they read the hardware, and write text that
// scripts read, so a lost write must not pass for a finished report.
#pragma once

// Root, a log handle without a file (the shared code logs through it and
// nothing is written), then the run lock, after saying who holds it. false
// when the command cannot go on (told on standard error).
bool start_companion();

// Flushes standard output; true when it took everything. A write that
// failed drops its bytes and marks the stream, and a later flush of the
// emptied buffer then succeeds, so both are checked.
bool stdout_flushed();

// Says why standard output could not take the text, when written is false;
// returns written.
bool output_written(bool written);

// The getopt error for argv's option that is not known.
void report_unknown_option(char **argv);
