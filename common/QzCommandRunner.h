// Runs another program of the client and describes how it went in one line.
#pragma once

#include <cstdint>
#include <vector>

#include "QzString.h"

namespace QzCommandRunner {

constexpr uint32_t kDefaultTimeoutMillis = 60000;
constexpr int32_t kMaxOutputBytes = 4000;

// Runs the program with the arguments, its output captured, and waits for it
// at most timeoutMillis (then it is killed). The result text is one line:
// "exit_code=N" with ", output=" and the output (line ends as blanks, at most
// kMaxOutputBytes) when it wrote any; "err_timeout_after_ms=N" when it was
// killed; "err_could_not_start_<win32 error>" when it never ran. True when it
// ran to its end (whatever its exit code).
bool RunAndDescribe(const QzString& exePath, const std::vector<QzString>& args, uint32_t timeoutMillis,
                    QzString* resultTextRet);

}  // namespace QzCommandRunner
