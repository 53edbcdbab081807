// The three phases of a scan run and what they share. The run owns one
// QzScanState and hands it to each phase in turn.
#pragma once

#include "QzScanState.h"
#include "QzString.h"

namespace QzScanRun {

// Two of the refusals: the self-destruct flag file holds "nuke_and_pave";
// the client version has reached end of life (an unreadable answer is no).
bool SelfDestructFlagIsSet();
bool IsEndOfLife();

// Refusals, the lock, volumes and alert levels, settings and rules, the
// top-level list (built afresh or resumed). Exits the process when the run
// cannot go on.
void Prepare(QzScanState& run);
// Walks every entry of the top-level list from run.topDirs.startAtDir on.
void MainLoop(QzScanState& run);
// Swaps the finished lists in, cleans up, releases the lock and exits 0.
[[noreturn]] void Finish(QzScanState& run);

// "qzfilelist processId=<pid>" followed by the text.
void Log(const QzScanState& run, const QzString& text);
// The same, only in write-through (verbose) mode.
void LogVerbose(const QzScanState& run, const QzString& text);

// Releases the run's lock and ends the process.
[[noreturn]] void ReleaseLockAndExit(QzScanState& run, int code);

// The header line of a new per-volume list.
QzString ListHeaderLine(int64_t gmtMillis);

// The log texts of one way of swapping a per-volume list in.
struct SwapTexts {
    const char* swapped;      // "Swapped in AtomicMove per-Vol filelist: "
    const char* notSwapping;  // "NOT SWAPPING IN in AtomicMove per-Vol filelist: "
    const char* failures;     // "ERROR: failures AtomicMove per-Vol filelist: "
};
extern const SwapTexts kFinishSwapTexts;
extern const SwapTexts kDefconSwapTexts;
// Moves a volume's ".future" list over its list, or deletes it when the
// volume is no longer mounted. True when the list was swapped in.
bool SwapInPerVolumeList(const QzString& listName, const QzString& mountPoint, const QzString& vguid,
                         const SwapTexts& texts);

// Writes the statistics to their checkpoint ("filestats.xml.future").
void WriteStatsCheckpoint(QzScanState& run);

}  // namespace QzScanRun
