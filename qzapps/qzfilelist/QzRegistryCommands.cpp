// Switches about the registry of known volumes and their alert levels.
#include "QzCommands.h"

int CmdAssignVolumeGuid(const Args& args) { return CmdUnavailable(args); }
int CmdUpdateQzVolumesXml(const Args& args) { return CmdUnavailable(args); }
int CmdUpdateQzDefconXml(const Args& args) { return CmdUnavailable(args); }
int CmdListVolumes(const Args& args) { return CmdUnavailable(args); }
int CmdListVolumesToFile(const Args& args) { return CmdUnavailable(args); }
