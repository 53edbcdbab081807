// Switches about the exclusion rules.
#include "QzCommands.h"

int CmdMergeExcludeRules(const Args& args) { return CmdUnavailable(args); }
