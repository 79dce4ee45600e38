/* Needs what nobody exports. */
#include "ostrel/plugin.h"

OstrelIoFuncs_t* nobodyDefinesThis(void);
OstrelIoFuncs_t* ostrelGetIoFuncs(void) { return nobodyDefinesThis(); }
