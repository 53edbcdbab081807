// Switches about volumes: identity, the registry of known volumes, alert levels.
#include "QzCommands.h"

int CmdVolumeInfo(const Args& args) { return CmdUnavailable(args); }
int CmdGetVolumeInfoFromFileName(const Args& args) { return CmdUnavailable(args); }
int CmdCloneQzVolToDataDir(const Args& args) { return CmdUnavailable(args); }
int CmdAssignVolumeGuid(const Args& args) { return CmdUnavailable(args); }
int CmdUpdateQzVolumesXml(const Args& args) { return CmdUnavailable(args); }
int CmdUpdateQzDefconXml(const Args& args) { return CmdUnavailable(args); }
int CmdPingDrives(const Args& args) { return CmdUnavailable(args); }
int CmdQueryAttachedVolumes(const Args& args) { return CmdUnavailable(args); }
int CmdListVolumes(const Args& args) { return CmdUnavailable(args); }
int CmdListVolumesToFile(const Args& args) { return CmdUnavailable(args); }
int CmdListVolumesDetail(const Args& args) { return CmdUnavailable(args); }
