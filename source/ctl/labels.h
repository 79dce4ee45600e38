// Labels: how a batch speaks of an instance that it makes itself, as STRUCT[$LABEL].
#pragma once

#include <string>
#include <string_view>

// The line as the database files' grammar reads it, with an index in place of the label.
struct LabelledLine {
    std::string text;
    std::string label{};  // without its $; empty: the line has none
};

// Throws Failure when what stands behind the $ is no label.
LabelledLine takeLabel(std::string_view line);
