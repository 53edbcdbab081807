// The scan run: one walk of every volume selected for backup. Preparation,
// the main loop over the top-level list and the finishing steps each live in
// a file of their own; this one holds what they share and the entry point.
#include "QzScanRun.h"

#include "QzFile.h"
#include "QzFileVolumes.h"
#include "QzFileWrite.h"
#include "QzLock.h"
#include "QzLog.h"
#include "QzSystem.h"
#include "QzTime.h"
#include "qzfilelist.h"

namespace QzScanRun {

const SwapTexts kFinishSwapTexts = {
    "Swapped in AtomicMove per-Vol filelist: ", "NOT SWAPPING IN in AtomicMove per-Vol filelist: ",
    "ERROR: failures AtomicMove per-Vol filelist: "};
const SwapTexts kDefconSwapTexts = {"DEFCON_Swapped in AtomicMove per-Vol filelist: ",
                                    "DEFCON_NOT SWAPPING IN in AtomicMove per-Vol filelist: ",
                                    "DEFCON ERROR: failures AtomicMove per-Vol filelist: "};

void Log(const QzScanState& run, const QzString& text) {
    QzLog::WriteLine(QzCat("qzfilelist processId=", run.pid, text));
}

void LogVerbose(const QzScanState& run, const QzString& text) {
    if (run.verbose) Log(run, text);
}

void ReleaseLockAndExit(QzScanState&, int code) {
    if (QzLock::FileBasedLock* lock = QzLock::GlobalThreeHourLock()) QzLock::ReleaseFileBasedLock(lock);
    ExitQzFileList(code);
}

QzString ListHeaderLine(int64_t gmtMillis) {
    QzString h("# GmtMillisThisListWasStarted: ");
    QzTime::AppendGmtMillisAsHex16(h, gmtMillis);
    h.Append(", GmtDateTime: ");
    QzTime::AppendDateTime14(h, gmtMillis);
    h.AppendChar('\n');
    return h;
}

bool SwapInPerVolumeList(const QzString& listName, const QzString& mountPoint, const QzString& vguid,
                         const SwapTexts& texts) {
    const QzString future = QzCat(listName, ".future");
    const int64_t size = QzFile::GetFileSizeInBytes(future.c_str());
    const QzString sizeText = QzCat(", numBytes=", static_cast<long long>(size), " (",
                                    static_cast<long long>(size / 1048576), " MB)");
    QzVolumeInfo info;
    const bool mounted =
        QzFile::GetInfoAboutAttachedVolume(mountPoint, &info) && info.volumeGuid.Equals(vguid);
    if (!mounted) {
        QzFile::DeleteFileIfExists(future.c_str());
        QzLog::WriteLine(QzCat(texts.notSwapping, listName, sizeText, " because it is no longer mounted!"));
        return false;
    }
    const bool moved = QzFile::MoveWithRetry(future.c_str(), listName.c_str(), 12, 500, [&](int failures) {
        if (failures >= 10) QzLog::WriteLine(QzCat(texts.failures, listName));
    });
    if (moved) QzLog::WriteLine(QzCat(texts.swapped, listName, sizeText));
    return moved;
}

void WriteStatsCheckpoint(QzScanState& run) {
    QzFileStats::WriteFileStatsOut(run.statsFuturePath, run.stats, run.identity, run.firstVolumeDone, false);
}

}  // namespace QzScanRun
