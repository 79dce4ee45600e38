#include "server/signals.h"

#include <csignal>

#include "server/globals.h"

void Signal_Quit(int sig) {
    quitSignal = sig;
    quitRequested = 1;
}

void Signal_HUP(int) { logReloadRequested = 1; }

void installHangUpHandler() {
    std::signal(SIGHUP, Signal_HUP);
    std::signal(SIGPIPE, SIG_IGN);
    // Ignored, as who starts the daemon may hand it on, it would hide how the programs of plug-ins end.
    std::signal(SIGCHLD, SIG_DFL);
}

void installQuitHandlers() {
    for (const int number : {SIGINT, SIGTERM, SIGQUIT})
        std::signal(number, Signal_Quit);
}
