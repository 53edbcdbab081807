#include "QzDataPaths.h"

#include <cstddef>

#include "QzFileLocations.h"

namespace QzFile {

namespace {
constexpr const char* kNames[] = {
    "qzinfo.xml",
    "qzvolumes.xml",
    "qzvolumes.xml.lock",
    "qzexcluderules_mandatory.xml",
    "qzexcluderules_editable.xml",
    "qzvol_system_volume",
    "qzreports",
    "qzreports\\qzexcluderules_editable_mergelog.txt",
    "qzreports\\qzdefcon.xml",
    "qzreports\\qzserv_runs_as.txt",
    "qzreports\\qzstat_max_verify_mounts.txt",
    "qzreports\\qzinstalled_programs.txt",
    "qzreports\\qzserv_perm_report.txt",
    "qzreports\\qzrollback_history.txt",
    "qzfilelists",
    "qzfilelists\\qzfilelist_stop_run.txt",
    "qzfilelists\\qzfilelist_hour_lock.lck",
    "qzfilelists\\qzfilelistdisablebuffering.txt",
    "qzfilelists\\urgent_is_still_running_flag.txt",
    "qzfilelists\\topdirs.xml",
    "qzfilelists\\topdirs.xml.future",
    "qzfilelists\\topdirs.xml.future_aside",
    "qzfilelists\\filestats.xml",
    "qzfilelists\\filestats.xml.future",
    "qzfilelists\\bigfilelist.dat",
    "qzfilelists\\bigfilelist.dat.future",
    "qzfilelists\\completefilelist.dat",
    "qzfilelists\\completefilelist.dat.future",
    "qzfilelists\\firstfilescantime.xml",
    "qzupdates\\qzflag_selfdestructflag.txt",
    "qzupdates\\clientversion.xml",
    "qzlogs\\qzfilelist",
    "qzlogs\\qzreports_lastfilestransmitted",
    "qzflags",
    "qzreports\\qzinstall_history.txt",
};
static_assert(sizeof(kNames) / sizeof(kNames[0]) == static_cast<size_t>(DataFile::Count),
              "one name per data file");
}  // namespace

const char* DataRelativeName(DataFile which) {
    const auto i = static_cast<size_t>(which);
    return i < static_cast<size_t>(DataFile::Count) ? kNames[i] : "";
}

QzString DataPath(DataFile which) {
    return QzCat(GetDataDir(), DataRelativeName(which));
}

}  // namespace QzFile
