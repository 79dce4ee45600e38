// What an operation costs beside much that it does not concern: per item, for sizes ten times each other.
#pragma once

// Prints a line for each; the lines of a kind should say the same.
void measureScale();
