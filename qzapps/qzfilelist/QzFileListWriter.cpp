#include "QzFileListWriter.h"

#include <bit>
#include <cstring>

#include "QzFile.h"
#include "QzFileInfo.h"
#include "QzFileListing.h"
#include "QzFileWrite.h"
#include "QzInfoManager.h"
#include "QzLog.h"
#include "QzPathAnomaly.h"
#include "QzTime.h"
#include "QzTopDirs.h"

namespace QzFileListWriter {

namespace {

constexpr const char* kBackslashMarker = "_-backslash-_";

// Appends the decimal digits of a non-negative value, two at a time.
inline int PutDecimal(char* out, int64_t v) {
    static constexpr char kPairs[] =
        "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
        "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
        "8081828384858687888990919293949596979899";
    char tmp[24];
    char* p = tmp + sizeof tmp;
    uint64_t u = v < 0 ? 0 : static_cast<uint64_t>(v);
    while (u >= 100) {
        const auto pair = static_cast<size_t>(u % 100) * 2;
        u /= 100;
        *--p = kPairs[pair + 1];
        *--p = kPairs[pair];
    }
    if (u >= 10) {
        *--p = kPairs[u * 2 + 1];
        *--p = kPairs[u * 2];
    } else {
        *--p = static_cast<char>('0' + u);
    }
    const int n = static_cast<int>(tmp + sizeof tmp - p);
    std::memcpy(out, p, static_cast<size_t>(n));
    return n;
}

// Eight hex digits of 32 bits, most significant first, all at once: each
// nibble spread into a byte of its own, then turned into its digit.
inline uint64_t Hex8(uint32_t v) {
    uint64_t x = v;
    x = (x | (x << 16)) & 0x0000FFFF0000FFFFULL;
    x = (x | (x << 8)) & 0x00FF00FF00FF00FFULL;
    x = (x | (x << 4)) & 0x0F0F0F0F0F0F0F0FULL;
    const uint64_t letters = ((x + 0x0606060606060606ULL) >> 4) & 0x0101010101010101ULL;  // nibbles above 9
    x += 0x3030303030303030ULL + letters * ('a' - '0' - 10);
    return std::endian::native == std::endian::little ? __builtin_bswap64(x) : x;
}

inline void PutHex16(char* out, int64_t v) {
    const auto u = static_cast<uint64_t>(v);
    const uint64_t high = Hex8(static_cast<uint32_t>(u >> 32)), low = Hex8(static_cast<uint32_t>(u));
    std::memcpy(out, &high, 8);
    std::memcpy(out + 8, &low, 8);
}

// "f\t<16 hex>\t<size>\t<path>\n" ("s" for a reparse point).
inline void AppendFileLine(QzString& buf, const QzFileInfo& e) {
    char head[48];
    head[0] = e.isReparsePoint ? 's' : 'f';
    head[1] = '\t';
    PutHex16(head + 2, e.lastModifiedMillis);
    head[18] = '\t';
    int n = 19 + PutDecimal(head + 19, e.TotalSize());
    head[n++] = '\t';
    // One reservation and two copies: this runs for every file of the walk.
    const int32_t at = buf.Length();
    const int32_t pathLen = e.fullPath.Length();
    if (!buf.Reserve(at + n + pathLen + 2, /*generous=*/true)) return;
    char* d = buf.Data() + at;
    std::memcpy(d, head, static_cast<size_t>(n));
    std::memcpy(d + n, e.fullPath.c_str(), static_cast<size_t>(pathLen));
    d[n + pathLen] = '\n';
    buf.SetLength(at + n + pathLen + 1);
}

void AppendBigFileLine(QzScanState& run, const QzFileInfo& e, bool selected) {
    QzString& line = run.scratch;
    line.Clear();
    char head[32];
    head[0] = selected ? 't' : 'f';
    head[1] = '\t';
    int n = 2 + PutDecimal(head + 2, e.TotalSize());
    head[n++] = '\t';
    line.Append(head, n);
    line.Append(e.fullPath);
    line.AppendChar('\n');
    if (!run.bigFiles.Append(line))
        QzLog::WriteLine(
            QzCat("ERROR: could not append to the large-file list: ", run.bigFiles.FuturePath()));
}

void ReplaceMarker(const QzString& in, QzString* out) {
    out->Clear();
    const int32_t markerLen = 13;
    for (int32_t from = 0;;) {
        const int32_t at = in.Find(kBackslashMarker, from);
        if (at < 0) {
            out->Append(in.c_str() + from, in.Length() - from);
            return;
        }
        out->Append(in.c_str() + from, at - from);
        out->AppendChar('\\');
        from = at + markerLen;
    }
}

// Every 101st directory of a normal run pauses 3 seconds; every 501st of a
// fast run does not pause. Either way the stop file and the lock are checked.
void ThrottleAndCheck(QzScanState& run, const QzString& dir) {
    ++run.dirCounter;
    const int32_t limit =
        run.urgent ? QzScanState::kFastDirsBetweenChecks : QzScanState::kNormalDirsBetweenPauses;
    if (run.dirCounter <= limit) return;
    if (!run.urgent) QzTime::SleepMillis(QzScanState::kPauseMillis);
    run.dirCounter = 0;
    CheckStopFileAndExitIfPresent(run);
    QzLock::RefreshGlobalThreeHourLock_ExitIfFail(dir);
}

void FlushIfVerbose(QzScanState& run, QzFile::FutureFile& list) {
    if (run.verbose && run.buffer.Length() > 1) FlushBuffer(run, list);
}

// The block of one listed directory: header, then one line per file, with
// the rule decision, the large-file list and the statistics for each.
void WriteBlock(QzScanState& run, QzFile::FutureFile& list, const QzString& dir, QzFileInfoList& entries,
                bool crLfTestOnly) {
    int64_t files = 0;
    for (int32_t i = 0; i < entries.Count(); ++i)
        if (!entries.At(i)->isDirectory) ++files;
    QzString& buf = run.buffer;
    buf.Append("#\n# Dir: ");
    buf.Append(dir);
    buf.Append("\n# Files: ");
    buf.AppendInt(files);
    buf.AppendChar('\n');
    FlushIfVerbose(run, list);

    QzString why;
    // Every entry's path is the listed folder's path and a name: the folder
    // part is searched once, here, and the names one by one.
    const int32_t clean = entries.Count() > 0 ? QzPathAnomaly::CleanFolderPrefix(entries.At(0)->fullPath) : 0;
    for (int32_t i = 0; i < entries.Count(); ++i) {
        QzFileInfo& e = *entries.At(i);
        const QzPathAnomaly::EntryVerdict verdict =
            crLfTestOnly
                ? QzPathAnomaly::CheckEntryPathCrLfOnly(&e.fullPath, &why)
                : QzPathAnomaly::CheckEntryPath(&e.fullPath, QzPathAnomaly::kBackslashPlatform, &why, clean);
        if (verdict != QzPathAnomaly::EntryVerdict::Keep &&
            verdict != QzPathAnomaly::EntryVerdict::KeepRenamed) {
            QzLog::WriteLine(why);
            continue;
        }
        if (e.isDirectory) continue;
        AppendFileLine(buf, e);
        FlushIfVerbose(run, list);
        const int64_t size = e.TotalSize();
        const bool selected = QzInfoManager::UserWantsThisFileBackedUpEx(e.fullPath, size, run.maxSizeBytes);
        if (size > QzScanState::kBigFileAbove && !QzPathAnomaly::IsLeftOutOfBigFileList(e.fullPath))
            AppendBigFileLine(run, e, selected);
        if (selected) QzFileStats::CountSelectedFile(run.categories, e.fullPath, size, &run.stats);
    }
    if (buf.Length() > QzScanState::kFlushThresholdBytes) FlushBuffer(run, list);
    FlushIfVerbose(run, list);
}

}  // namespace

void FlushBuffer(QzScanState& run, QzFile::FutureFile& list) {
    if (run.buffer.IsEmpty()) return;
    if (!list.Append(run.buffer))
        QzLog::WriteLine(QzCat("ERROR: could not append to file list: ", list.FuturePath()));
    run.buffer.Clear();
}

namespace {
// Lists the directory. When that fails and the path holds the backslash
// marker of a renamed name, lists it again with every marker turned back
// into "\"; *retriedRet says whether that second try was made.
bool ListDirectory(const QzString& dir, QzFileInfoList* entries, bool* retriedRet) {
    *retriedRet = false;
    if (QzFile::GetListOfFileInfosInDir(&dir, entries)) return true;
    if (!dir.Contains(kBackslashMarker)) return false;
    *retriedRet = true;
    QzString plain;
    ReplaceMarker(dir, &plain);
    return QzFile::GetListOfFileInfosInDir(&plain, entries);
}
}  // namespace

int DepthOfPath(const QzString& dir) {
    int depth = 0;
    const char* p = dir.c_str();
    for (int32_t i = 3; i < dir.Length(); ++i)
        if (p[i] == '\\') ++depth;
    return dir.Length() > 3 ? depth + 1 : 0;
}

bool AddFilenamesFromThisDirToList(QzScanState& run, QzFile::FutureFile& list, const QzString& dir) {
    QzFileInfoList* entries = run.ListForDepth(0);
    if (!entries) return false;
    bool retried = false;
    if (!ListDirectory(dir, entries, &retried)) {
        if (retried)
            QzLog::WriteLine(QzCat("ERROR: AddFilenamesFromThisDirToList -GtListOfFileIS fld f:", dir));
        QzLog::WriteLine(QzCat("ERROR: AddFilenamesFromThisDirToList GetListOfFileI fld, processId=", run.pid,
                               ", so VerifyingMountPoints_B for dir: ", dir));
        const bool unchanged = QzTopDirsFile::VerifyMountPointsAndCorrectTopDirs(&run.topDirs, &dir);
        QzLog::WriteLine(unchanged ? "VerifyMountPointsAndCorrectTopDirs no change"
                                   : "VerifyMountPointsAndCorrectTopDirs changed!");
        return false;
    }
    QzFile::RemoveMountedNetworkFolders(entries);
    WriteBlock(run, list, dir, *entries, /*crLfTestOnly=*/true);
    return true;
}

void RecursivelyAddFilenamesToList(QzScanState& run, QzFile::FutureFile& list, const QzString& dir,
                                   int depth) {
    if (depth > QzScanState::kMaxDepth) {
        QzLog::WriteLine(QzCat("ERROR: RecursivelyAddFilenamesToList recursion limit hit for: ", dir));
        return;
    }
    if (depth > run.deepestDepth) run.deepestDepth = depth;
    if (run.verbose) {
        long long virt, res, hw;
        MemoryMb(&virt, &res, &hw);
        QzLog::WriteLine(
            QzCat("Entering RecursivelyAddFilenamesToList processId=", run.pid,
                  ", maxRecursDepthSeen=", run.deepestDepth, ", curRecursDepth=", depth, ", startDir=", dir,
                  ", numMBytesCurrentVirtualMemSize=", virt, ", numMBytesCurrentResidentMemSize=", res,
                  ", numMBytesCurrentHardwareRamMemSize=", hw, ", numMBytesStackUsedUp=", StackUsedMb()));
    }
    QzFileInfoList* entries = run.ListForDepth(depth);
    if (!entries) return;
    bool retried = false;
    const bool listed = ListDirectory(dir, entries, &retried);
    if (retried)
        QzLog::WriteLine(QzCat("ERROR: RecursivelyAddFilenamesToList processId=", run.pid,
                               listed ? " - BB_GtLstOfFleIS suc f:" : " - AA_GtLstOfFleIS fld f=", dir));
    if (!listed) {
        if (QzPathAnomaly::IsSharedProgramDataJunction(dir)) return;
        QzLog::WriteLine(QzCat("ERROR: RecursivelyAddFilenamesToList processId=", run.pid,
                               ", GetListOfFileInfosInDir failed, so VerifyingMountPoints_A for dir: ", dir));
        const bool unchanged = QzTopDirsFile::VerifyMountPointsAndCorrectTopDirs(&run.topDirs, &dir);
        QzLog::WriteLine(QzCat("RecursivelyAddFilenamesToList processId=", run.pid,
                               ", VerifyMountPointsAndCorrectTopDirs ",
                               unchanged ? "no change. dir: " : "changed! dir: ", dir));
        return;
    }
    ThrottleAndCheck(run, dir);
    QzFile::RemoveMountedNetworkFolders(entries);
    WriteBlock(run, list, dir, *entries, /*crLfTestOnly=*/false);

    QzString why;
    for (int32_t i = 0; i < entries->Count(); ++i) {
        const QzFileInfo& e = *entries->At(i);
        if (!e.isDirectory || e.isReparsePoint) continue;
        if (QzPathAnomaly::CheckDirectoryPath(e.fullPath, &why) != QzPathAnomaly::DirVerdict::Enter) {
            QzLog::WriteLine(why);
            continue;
        }
        RecursivelyAddFilenamesToList(run, list, e.fullPath, depth + 1);
    }
}

}  // namespace QzFileListWriter
