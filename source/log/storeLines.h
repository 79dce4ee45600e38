// Texts of the store in the log that others look for.
#pragma once

namespace knownLine {

// Why the process ends when another one has the database.
constexpr char databaseInUse[] = "Database in use";

}  // namespace knownLine
