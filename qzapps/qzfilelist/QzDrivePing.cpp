// The drive ping run before a scan and by -pingdrives_thatare_selectedforbackup.
#include "qzfilelist.h"

void PingDrivesThatAreSelectedForBackup() {}
