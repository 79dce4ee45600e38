// Fills the model from the text of the three files. A bad line is reported and skipped.
#pragma once

#include "db/model.h"
#include "text/lines.h"

namespace store {

enum class LineFault {
    bad,           // no line of its file, whatever the others say; skipped
    orphaned,      // a change that does not fit the defaults and templates, or the lines above it; skipped
    instanceGone,  // a change of an instance that is not there; skipped
    templateGone   // an instance of an unknown template; it is taken
};

class LoadReport {
public:
    // Arguments are borrowed for the call.
    virtual void fault(const LinePlace& place, LineFault fault, const char* reason) = 0;

protected:
    ~LoadReport() = default;
};

// In this order: each needs what the one before has loaded.
void loadTemplates(const SourceText& source, Model& model, LoadReport& report);
void loadDefaults(const SourceText& source, Model& model, LoadReport& report);
// Good transactions of the live file.
void loadChanges(const SourceText& source, Model& model, LoadReport& report);

// One line of a live file that could be parsed.
void applyChange(const LinePlace& place, const Line& line, Model& model, LoadReport& report);

}  // namespace store
