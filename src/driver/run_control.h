// run_control.h - one run of the program, from the command line to the timing table.
#pragma once

// Returns the exit status: 0 after a completed run, 1 with the reason on standard error. A failure on a
// worker thread ends the process with 255, and any failure once the algorithms have opened their outputs ends
// it at once too, so that no destructor finishes the output of a run that failed.
int runDriver(int argc, char* argv[]);
