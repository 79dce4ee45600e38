// What a line from outside must pass before it becomes a change. A replay only meets what a transaction has
// checked.
#pragma once

#include "db/model.h"
#include "text/grammar.h"

// Refused: the line is no change, or the daemon would refuse it. What the model itself checks is not checked
// here. model: with all lines before this one.
store::Result checkImported(const store::Line& line, const store::Model& model);

// What the user should know of a line that is taken; null: nothing.
const char* warningOf(const store::Line& line, const store::Model& model);
