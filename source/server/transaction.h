// What the database's transaction calls answer.
#pragma once

// The handle that stands for no transaction; -1 does not.
constexpr long invalidTransaction = 0xFFFFFFFF;

// The element operations refuse with -1.
constexpr int refused = -1;
