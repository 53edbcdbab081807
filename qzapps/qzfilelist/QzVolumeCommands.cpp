// Switches about attached volumes and their marker folders.
#include "QzCommands.h"

int CmdVolumeInfo(const Args& args) { return CmdUnavailable(args); }
int CmdGetVolumeInfoFromFileName(const Args& args) { return CmdUnavailable(args); }
int CmdCloneQzVolToDataDir(const Args& args) { return CmdUnavailable(args); }
int CmdPingDrives(const Args& args) { return CmdUnavailable(args); }
int CmdQueryAttachedVolumes(const Args& args) { return CmdUnavailable(args); }
int CmdListVolumesDetail(const Args& args) { return CmdUnavailable(args); }
