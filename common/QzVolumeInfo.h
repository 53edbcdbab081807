// What the program knows about one attached volume.
#pragma once

#include <cstdint>

#include "QzString.h"

struct QzVolumeInfo {
    QzString mountPoint;               // a root such as "C:\" (letter, colon, backslash)
    int64_t bytesFree = -1;            // free to the caller; -1 until known
    int64_t bytesUsed = -1;            // total minus free
    int64_t bytesTotal = -1;           // -1 until known
    int64_t timeQueried = 0;           // GMT millis when the record was filled
    bool attached = false;             // true once the volume answered
    char typeCode[3] = "un";           // "gm" fixed with content, "em" fixed and empty, "un" unknown
    QzString volumeGuid;               // "vguid" of the volume's marker; empty when none
    QzString associatedHguid;          // "associated_hguid" of the marker
    QzString markerError;              // why the marker could not be used, empty when it could
    bool isSystemBootVolume = false;   // holds the Windows directory
    bool volumeInformationOk = false;  // the file-system query succeeded
    // Details from the file-system query, for the volume listings.
    uint32_t driveType = 0;
    QzString fileSystemName;
    QzString uuid;  // the system's own identifier of the volume
    bool isWritable = false;
    bool isCaseSensitive = false;
    bool isCasePreserving = false;

    void SetTypeCode(const char* code) {
        typeCode[0] = code[0];
        typeCode[1] = code[0] ? code[1] : '\0';
        typeCode[2] = '\0';
    }
};
