// The changes of a database as lines.
#pragma once

#include <functional>
#include <string>

#include "db/model.h"
#include "text/grammar.h"

// line: without its line break.
using UseChange = std::function<void(store::Line::Kind, const store::RowKey&, std::string line)>;

// In the order in which the lines can be applied.
void forEachChange(const store::Model& model, const UseChange& use);
