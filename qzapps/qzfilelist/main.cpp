// qzfilelist entry point: the start-up every invocation shares, then the
// command named by the first argument, or a scan run.
#include <cstdio>
#include <cstdlib>

#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileWrite.h"
#include "QzLog.h"
#include "QzOs.h"
#include "QzSystem.h"
#include "QzTime.h"
#include "qzfilelist.h"

namespace {

void WriteStartupLine() {
    constexpr int64_t kMb = 1048576;
    const QzSystem::MemoryFigures mem = QzSystem::GetMemoryFigures();
    QzString line =
        QzCat("qzfilelist processId=", QzSystem::GetProcessId(), " version=", kQzFileListVersion,
              ", myhguid=", QzFile::GetMyHostGuid(), g_isProc64 ? ", myProc64=TRUE" : ", myProc64=FALSE",
              ", numMBytesStartVirtualMemSize=", static_cast<long long>(mem.virtualBytes / kMb),
              ", numMBytesStartResidentMemSize=", static_cast<long long>(mem.residentBytes / kMb),
              ", numMBytesStartHardwareRamMemSize=", static_cast<long long>(mem.hardwareBytes / kMb),
              g_bufferingIsDisabled ? ", BUFFERING_IS_TURNED_OFF, called with args: "
                                    : ", buffering_is_on, called with args: ");
    for (size_t i = 1; i < g_args.size(); ++i)
        line.Append(QzCat("arg", static_cast<long long>(i), "=", g_args[i], " "));
    QzLog::WriteLine(line);
}

}  // namespace

int main(int argc, char** argv) {
    char stackMark = 0;
    g_stackBaseAtStart = reinterpret_cast<uintptr_t>(&stackMark);
    QzOs::InitConsole();
    if (!QzOs::SocketStartup()) {
        std::fputs("ERROR: WSAStartup failed\n", stderr);
        std::exit(1);
    }
    QzOs::GetUtf8Arguments(argc, argv, &g_args);
    // Tests of the whole program run its pauses in virtual time.
    if (const char* v = std::getenv("QZ_TEST_VIRTUAL_TIME"); v && v[0] == '1' && v[1] == '\0')
        QzTime::UseVirtualTime();
    // Crash tests end the run at a chosen step of writing a file (QzFileWrite.h).
    if (const char* v = std::getenv("QZ_TEST_CRASH_AT_STEP")) QzFile::SetCrashStepForTesting(std::atoll(v));

    const QzString& dataDir = QzFile::GetDataDir();
    const QzString logBase = QzFile::DataPath(QzFile::DataFile::LogBase);
    const QzString noBufferingFlag = QzFile::DataPath(QzFile::DataFile::DisableBuffering);
    g_bufferingIsDisabled = QzFile::PathExists(noBufferingFlag.c_str());

    QzLog::Open(logBase.c_str(), dataDir.c_str());
    QzLog::WriteLine(" ");
    QzLog::WriteLine("starting qzfilelist");

    QzFile::GetMyHostGuid();
    g_isProc64 = QzSystem::Is64BitProcess();
    WriteStartupLine();

    DispatchCommandLine();
    RunScanAndExit();
}
