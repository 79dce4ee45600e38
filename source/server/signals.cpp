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
}

void installQuitHandlers() {
    for (int number : {SIGINT, SIGTERM, SIGQUIT})
        std::signal(number, Signal_Quit);
}
