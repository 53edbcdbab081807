// Reading the program's own shared files patiently. On Windows another
// process (antivirus, indexer, the client's transmitter) holds a file for a
// moment all the time; a held file is neither missing nor corrupt. Callers
// tell the three cases apart and act on each differently: only a missing
// file may be started afresh, only a malformed one regenerated, and a held
// one changes nothing.
#pragma once

#include <cstdint>
#include <functional>

#include "QzString.h"

namespace QzFile {

enum class ReadStatus {
    Ok,         // read completely
    Missing,    // the file (or its folder) does not exist
    Held,       // it exists but could not be read, even after the retries
    Malformed,  // read, but its content is not what its reader accepts (set by the caller's parser)
};

const char* ReadStatusName(ReadStatus status);  // "ok", "missing", "held", "malformed"

struct ReadPolicy {
    int attempts = 5;            // reads in all before giving up on a held file
    uint32_t pauseMillis = 100;  // between failed reads
    // Called after each failed read of a file that exists, with the number of
    // failures so far and the reader's text, for callers that log each try.
    std::function<void(int failures, const QzString& err)> onFailedAttempt;
};

// Reads the whole file. Ok, Missing or Held; errStrRet gets the reader's text
// of the last failure ("file_does_not_exist", "Another_Process_Has_File_Open_", ...).
ReadStatus ReadFilePatiently(const char* path, QzString* contentRet, const ReadPolicy& policy = {},
                             QzString* errStrRet = nullptr);

}  // namespace QzFile
