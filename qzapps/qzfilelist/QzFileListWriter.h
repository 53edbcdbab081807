// The per-volume file list writers. A list names every file the walk reaches
// with its modification time and size, in blocks of one directory each:
//
//   #
//   # Dir: C:\Users\bob
//   # Files: 2
//   f<TAB>0000018c2a1b3c4d<TAB>1234<TAB>C:\Users\bob\notes.txt
//   s<TAB>0000018c2a1b3c4d<TAB>0<TAB>C:\Users\bob\link
//
// Lines collect in the run's buffer and are appended to the volume's
// ".future" list in large pieces. The exclusion rules are asked about every
// file only for the selection counters, the statistics and the large-file list.
#pragma once

#include "QzFileWrite.h"
#include "QzScanState.h"
#include "QzString.h"

namespace QzFileListWriter {

// Writes the block of one directory (an entry flagged "0" or "1"); never
// descends. False when the directory could not be listed.
bool AddFilenamesFromThisDirToList(QzScanState& run, QzFile::FutureFile& list, const QzString& dir);

// Writes the block of a directory and then, depth first in listing order, of
// every subdirectory below it. `depth` counts the directory's levels below
// its volume root; deeper than QzScanState::kMaxDepth is logged and left out.
void RecursivelyAddFilenamesToList(QzScanState& run, QzFile::FutureFile& list, const QzString& dir,
                                   int depth);

// Appends the buffer to the list and empties it.
void FlushBuffer(QzScanState& run, QzFile::FutureFile& list);

// The directory level of a path below its volume root ("C:\a\b" is 2).
int DepthOfPath(const QzString& dir);

}  // namespace QzFileListWriter
