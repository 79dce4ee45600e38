// Rewrites the live file as the daemon does when most of its lines are superseded.
#include <iostream>

#include "dbTool/commands.h"
#include "dbTool/faults.h"
#include "dbTool/writer.h"

void compact(const store::Paths& paths, bool force) {
    if (isMissing(livePlace(paths))) {
        std::cout << paths.live << ": there is no such file; nothing to do\n";
        return;
    }
    Writer writer(paths);
    const Snapshot snapshot(paths);
    requireSound(snapshot);
    Faults ignored;
    Faults faults;
    store::Model model;
    snapshot.loadFactory(model, ignored);
    snapshot.loadLive(model, faults);
    requireConsent(faults, force);
    writer.write(snapshot, model, snapshot.scan().lastNumber, false);
    std::cout << paths.live << ": " << snapshot.scan().goodBytes << " bytes before, "
              << Snapshot(paths).scan().goodBytes << " now\n";
}
