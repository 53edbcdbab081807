#include "QzScanState.h"

#include <new>

#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzLog.h"
#include "QzSystem.h"
#include "qzfilelist.h"

QzFileInfoList* QzScanState::ListForDepth(int depth) {
    if (depth < 0) return nullptr;
    const size_t d = static_cast<size_t>(depth);
    if (d >= listsByDepth.size()) listsByDepth.resize(d + 1);
    if (!listsByDepth[d]) listsByDepth[d].reset(new (std::nothrow) QzFileInfoList);
    return listsByDepth[d].get();
}

void CheckStopFileAndExitIfPresent(const QzScanState& run) {
    if (!QzFile::FileExists(run.stopPath.c_str())) return;
    QzLog::WriteLine(QzCat("qzfilelist processId=", run.pid,
                           " - STOP RUNNING file is in place, deleting file and exiting!"));
    QzFile::DeleteFileIfExists(run.stopPath.c_str());
    QzFile::DeleteFileIfExists(QzFile::DataPath(QzFile::DataFile::HourLock).c_str());
    ExitQzFileList(0);
}

long long StackUsedMb() {
    char here = 0;
    const uintptr_t now = reinterpret_cast<uintptr_t>(&here);
    const uintptr_t base = g_stackBaseAtStart;
    if (base == 0) return 0;
    const uintptr_t used = base > now ? base - now : now - base;
    return static_cast<long long>(used >> 20);
}

void MemoryMb(long long* virtualRet, long long* residentRet, long long* hardwareRet) {
    const QzSystem::MemoryFigures mem = QzSystem::GetMemoryFigures();
    *virtualRet = static_cast<long long>(mem.virtualBytes >> 20);
    *residentRet = static_cast<long long>(mem.residentBytes >> 20);
    *hardwareRet = static_cast<long long>(mem.hardwareBytes >> 20);
}
