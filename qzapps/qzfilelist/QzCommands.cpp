// The command-line switches: one table, tried in order, matched exactly and
// case-sensitively on the first argument. Every command prints its result on
// standard output and ends the process; unknown switches exit 0 so the
// service never mistakes them for a crash.
#include "QzCommands.h"

#include <cstdio>
#include <cstring>

#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzInfoManager.h"
#include "QzLog.h"
#include "QzOs.h"
#include "QzReports.h"
#include "QzSystem.h"
#include "QzTime.h"
#include "QzUtil.h"
#include "qzfilelist.h"

namespace {

// How a switch treats its operands when too few are given.
enum class Operands {
    None,          // takes none
    One,           // needs one: usage line, exit 0
    Two,           // needs two: usage line, exit 0
    TwoOrUnknown,  // needs two; with fewer the switch is not recognised at all
    Optional,      // may take one
    Verdict,       // needs one: "FALSE: Must have additional arg for: " verdict
    FileOrFail,    // needs one: "FAIL:Please specify a path to a file." and exit 1
};

struct Command {
    const char* name;
    Operands operands;
    int (*run)(const Args& args);  // returns the exit code
};

int Version(const Args&) {
    std::printf("VERSION: %s\n", kQzFileListVersion);
    return 0;
}

int OsWithDetail(const Args&) {
    QzString os;
    QzSystem::DescribeOperatingSystem(&os);
    std::printf("OSwithDetail: %s\n", os.c_str());
    return 0;
}

int Is64Bit(const Args&) {
    std::printf(g_isProc64 ? "I am a 64 bit process.\n" : "I am NOT a 64 bit process.\n");
    return 0;
}

int Time(const Args&) {
    QzString report;
    QzSystem::DescribeTime(QzTime::GetCurrentGmtMillis(), &report);
    std::printf("%s", report.c_str());
    return 0;
}

int PrintMemUsage(const Args&) {
    const QzSystem::MemoryFigures mem = QzSystem::GetMemoryFigures();
    QzString resident, virt;
    QzUtil::AppendHumanReadableBytes(resident, mem.residentBytes);
    QzUtil::AppendHumanReadableBytes(virt, mem.virtualBytes);
    std::printf("ResidentMem: %s (%lld)\nVirtualMem: %s (%lld)\n", resident.c_str(),
                static_cast<long long>(mem.residentBytes), virt.c_str(),
                static_cast<long long>(mem.virtualBytes));
    return 0;
}

int PrintRam(const Args&) {
    const QzSystem::MemoryFigures mem = QzSystem::GetMemoryFigures();
    QzString ram;
    QzUtil::AppendHumanReadableBytes(ram, mem.hardwareBytes);
    std::printf("Hardware RAM in Bytes: %s (%lld)\n", ram.c_str(), static_cast<long long>(mem.hardwareBytes));
    return 0;
}

int CreateQzservPermReport(const Args&) {
    QzString path;
    if (QzReports::WriteServicePermissionReport(&path)) {
        std::printf("Wrote service permission report: %s\n", path.c_str());
    } else {
        std::printf("ERROR: could not write service permission report: %s\n", path.c_str());
    }
    return 0;
}

int UrgentFirstInstall(const Args&) {
    g_urgentRun = true;
    g_firstInstallTime = true;
    RunScanAndExit();
}

int UrgentRefreshAll(const Args&) {
    g_urgentRun = true;
    RunScanAndExit();
}

int UseTimeMachineExcludes(const Args& args) {
    std::printf("The \"%s\" option is only for MacOS.\n", args[1].c_str());
    return 1;
}

int ListTimeMachineUuids(const Args&) {
    std::printf("No backup volumes found. This command is not implemented for Windows.\n");
    return 1;
}

int IsTranslatedProcess(const Args&) {
    std::printf("not translated\n");
    return 0;
}

int ArchString(const Args&) {
    std::printf("UNKNOWN\n");
    return 0;
}

int LocaleInfo(const Args&) {
    QzString system, user, clientLocale, dateTime, time, date;
    QzOs::GetSystemLocaleName(&system);
    QzOs::GetUserLocaleName(&user);
    QzSystem::TranslateToClientLocale(system, &clientLocale);
    if (!QzSystem::FormatLocalDateTime14("20210527123456", &dateTime)) dateTime.Set("(could not format)");
    if (!QzSystem::FormatLocaleTime4("1234", &time)) time.Set("(could not format)");
    if (!QzSystem::FormatDate8("20210527", &date)) date.Set("(could not format)");
    std::printf("System Locale (translated into Korvatine locale): %s\n", clientLocale.c_str());
    std::printf("User's Preferred Locale: %s\n", user.IsEmpty() ? "(none set)" : user.c_str());
    std::printf("Local Date Time: %s\n", dateTime.c_str());
    std::printf("Locale Time: %s\n", time.c_str());
    std::printf("Date: %s\n", date.c_str());
    return 0;
}

// Rows before the settings file is looked up.
const Command kEarlyCommands[] = {
    {"-version", Operands::None, Version},
    {"-oswithdetail", Operands::None, OsWithDetail},
};

const Command kCommands[] = {
    {"-is64bit", Operands::None, Is64Bit},
    {"-merge_exclude_rules", Operands::None, CmdMergeExcludeRules},
    {"-attempt_run_qztransmit64", Operands::None, CmdAttemptRunQzTransmit64},
    {"-log_install_event", Operands::Two, CmdLogInstallEvent},
    {"-create_qzserv_perm_report", Operands::None, CreateQzservPermReport},
    {"-diagnose_read_problem", Operands::One, CmdDiagnoseReadProblem},
    {"-open_file_exclusive", Operands::One, CmdOpenFileExclusive},
    {"-fileinfo", Operands::One, CmdFileInfo},
    {"-time", Operands::None, Time},
    {"-dllinfo", Operands::One, CmdDllInfo},
    {"-dirlist", Operands::One, CmdDirList},
    {"-dirlistdetail", Operands::One, CmdDirListDetail},
    {"-volumeinfo", Operands::One, CmdVolumeInfo},
    {"-getvolumeinfofromfilename", Operands::One, CmdGetVolumeInfoFromFileName},
    {"-clone_qzvol_to_datadir", Operands::None, CmdCloneQzVolToDataDir},
    {"-assignvolumeguid", Operands::Verdict, CmdAssignVolumeGuid},
    {"-assignvolumeguid_hex", Operands::Verdict, CmdAssignVolumeGuid},
    {"-copy_rsrc_fork", Operands::TwoOrUnknown, CmdCopyRsrcFork},
    {"-explainfile", Operands::TwoOrUnknown, CmdExplainFile},
    {"-grep", Operands::TwoOrUnknown, CmdGrep},
    {"-igrep", Operands::TwoOrUnknown, CmdGrep},
    {"-update_qzvolumes_xml", Operands::None, CmdUpdateQzVolumesXml},
    {"-update_qzdefcon_xml", Operands::None, CmdUpdateQzDefconXml},
    {"-pingdrives_thatare_selectedforbackup", Operands::None, CmdPingDrives},
    {"-queryattachedvolumes", Operands::None, CmdQueryAttachedVolumes},
    {"-listvolumes", Operands::None, CmdListVolumes},
    {"-listvolumestofile", Operands::Optional, CmdListVolumesToFile},
    {"-printMemUsage", Operands::None, PrintMemUsage},
    {"-printRam", Operands::None, PrintRam},
    {"-first_install_time_urgent", Operands::None, UrgentFirstInstall},
    {"-urgent_refresh_all", Operands::None, UrgentRefreshAll},
    {"-listvolumesdetail", Operands::None, CmdListVolumesDetail},
    {"-retentioninfo", Operands::None, CmdRetentionInfo},
    {"-fixpermissions", Operands::None, CmdFixPermissions},
    {"-checkcodesignature", Operands::FileOrFail, CmdCheckCodeSignature},
    {"-usetimemachineexcludes", Operands::None, UseTimeMachineExcludes},
    {"-listtimemachineuuids", Operands::None, ListTimeMachineUuids},
    {"-istranslatedprocess", Operands::None, IsTranslatedProcess},
    {"-archstring", Operands::None, ArchString},
    {"-localeinfo", Operands::None, LocaleInfo},
};

// Finds the command for the first argument; a two-operand switch given fewer
// operands is not a match. Null when nothing matches.
const Command* Find(const Command* begin, const Command* end, const Args& args) {
    for (const Command* c = begin; c != end; ++c) {
        if (!args[1].Equals(c->name)) continue;
        if (c->operands == Operands::TwoOrUnknown && args.size() < 4) continue;
        return c;
    }
    return nullptr;
}

[[noreturn]] void Run(const Command& c, const Args& args) {
    const size_t argc = args.size();
    switch (c.operands) {
        case Operands::One:
            if (argc < 3) {
                std::printf("Must have additional arg for: %s\n", c.name);
                ExitQzFileList(0);
            }
            break;
        case Operands::Two:
            if (argc < 4) {
                std::printf("Must have additional arg for: %s\n", c.name);
                ExitQzFileList(0);
            }
            break;
        case Operands::Verdict:
            if (argc < 3) {
                std::printf("%s\n", QzCat("FALSE: Must have additional arg for: ", c.name).c_str());
                ExitQzFileList(0);
            }
            break;
        case Operands::FileOrFail:
            if (argc < 3) {
                std::printf("FAIL:Please specify a path to a file.\n");
                ExitQzFileList(1);
            }
            break;
        default:
            break;
    }
    ExitQzFileList(c.run(args));
}

// The settings file is looked up for every command after the first few and
// loaded when present. Its absence is logged and tolerated here; the scan run
// refuses to go on without it.
void LookUpSettingsFile() {
    const QzString path = QzFile::DataPath(QzFile::DataFile::Settings);
    if (!QzFile::FileExists(path.c_str())) {
        QzLog::WriteLine("ERROR: qzfilelist could not find a qzinfo.xml file");
        return;
    }
    QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile();
}

}  // namespace

void DispatchCommandLine() {
    const Args& args = g_args;
    if (args.size() < 2) return;  // no argument: scan run
    if (args[1].StartsWith("-h")) ExitQzFileList(1);
    if (const Command* c = Find(std::begin(kEarlyCommands), std::end(kEarlyCommands), args)) Run(*c, args);
    LookUpSettingsFile();
    if (const Command* c = Find(std::begin(kCommands), std::end(kCommands), args)) Run(*c, args);
    std::printf("Unknown arg: %s\n", args[1].c_str());
    ExitQzFileList(0);
}
