// The process's signal handlers. They only set flags that the main loop reads.
#pragma once

void Signal_Quit(int sig);
void Signal_HUP(int sig);

// SIGHUP reopens the log; SIGPIPE is ignored, a client that has gone is noticed by the write's result.
// SIGCHLD gets its default.
void installHangUpHandler();
void installQuitHandlers();
