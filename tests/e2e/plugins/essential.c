/* Beside scripted: what makes it essential. */
#include "ostrel/plugin.h"

void ostrelClientEssentialFunc(void) {}
