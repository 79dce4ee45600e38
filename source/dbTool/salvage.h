// What can be saved of a live file behind its first damage.
#pragma once

#include "db/loader.h"
#include "dbTool/faults.h"

struct Salvage {
    uint64_t lastNumber = 0;  // of the last transaction that was saved, or the one before the damage
    size_t transactions = 0;  // saved
    size_t lines = 0;         // saved of broken ones
    Faults faults;            // each line that was not saved
};

// Applies every transaction that its closing line vouches for to the model, which holds those before the
// damage; with singleLines also each line of the others that parses and fits. lastNumber: of the last one
// before.
Salvage salvage(const store::SourceText& rest, uint64_t lastNumber, bool singleLines, store::Model& model);
