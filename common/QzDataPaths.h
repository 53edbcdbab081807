// Every file and folder the program uses in the client's data directory,
// named once. Callers ask for a full path by name; no other code spells a
// data-directory file name.
#pragma once

#include "QzString.h"

namespace QzFile {

enum class DataFile {
    // settings and rules
    Settings,                  // qzinfo.xml
    VolumeRegistry,            // qzvolumes.xml
    VolumeRegistryLock,        // qzvolumes.xml.lock (held while a process rewrites the registry)
    MandatoryRules,            // qzexcluderules_mandatory.xml
    EditableRules,             // qzexcluderules_editable.xml
    SystemVolumeMarkerFolder,  // qzvol_system_volume (folder)
    // reports
    ReportsFolder,            // qzreports (folder)
    RulesMergeLog,            // qzreports\qzexcluderules_editable_mergelog.txt
    AlertLevels,              // qzreports\qzdefcon.xml
    ServiceAccountName,       // qzreports\qzserv_runs_as.txt
    MaxVerifyMounts,          // qzreports\qzstat_max_verify_mounts.txt
    InstalledProgramsReport,  // qzreports\qzinstalled_programs.txt
    PermissionReport,         // qzreports\qzserv_perm_report.txt
    RollbackHistory,          // qzreports\qzrollback_history.txt (written by the control panel)
    // the scan run
    FileListsFolder,         // qzfilelists (folder)
    StopRun,                 // qzfilelists\qzfilelist_stop_run.txt
    HourLock,                // qzfilelists\qzfilelist_hour_lock.lck
    DisableBuffering,        // qzfilelists\qzfilelistdisablebuffering.txt
    UrgentFlag,              // qzfilelists\urgent_is_still_running_flag.txt
    TopDirs,                 // qzfilelists\topdirs.xml
    TopDirsFuture,           // qzfilelists\topdirs.xml.future
    TopDirsFutureAside,      // qzfilelists\topdirs.xml.future_aside
    FileStats,               // qzfilelists\filestats.xml
    FileStatsFuture,         // qzfilelists\filestats.xml.future
    BigFileList,             // qzfilelists\bigfilelist.dat
    BigFileListFuture,       // qzfilelists\bigfilelist.dat.future
    CompleteFileList,        // qzfilelists\completefilelist.dat (obsolete, always deleted)
    CompleteFileListFuture,  // qzfilelists\completefilelist.dat.future
    FirstScanTime,           // qzfilelists\firstfilescantime.xml
    // other programs of the client
    SelfDestructFlag,            // qzupdates\qzflag_selfdestructflag.txt
    ClientVersion,               // qzupdates\clientversion.xml
    LogBase,                     // qzlogs\qzfilelist (base of the day files)
    LastFilesTransmittedFolder,  // qzlogs\qzreports_lastfilestransmitted (folder)
    FlagsFolder,                 // qzflags (folder)
    // installer support
    InstallHistory,  // qzreports\qzinstall_history.txt (one line per install event)
    Count
};

// The name relative to the data directory, with backslashes ("qzreports\qzdefcon.xml").
const char* DataRelativeName(DataFile which);
// The full path: the data directory + the relative name. Folders get no trailing separator.
QzString DataPath(DataFile which);

}  // namespace QzFile
