// Fills the model from the text of the three files. A bad line is logged with its file and number and
// skipped.
#pragma once

#include <string>
#include <string_view>

#include "db/model.h"

namespace store {

struct SourceText {
    std::string path;  // for the log
    std::string_view text;
};

// In this order: each needs what the one before has loaded.
void loadTemplates(const SourceText& source, Model& model);
void loadDefaults(const SourceText& source, Model& model);
// Good transactions of the live file.
void loadChanges(const SourceText& source, Model& model);

}  // namespace store
