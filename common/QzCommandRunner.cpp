#include "QzCommandRunner.h"

#include "QzLog.h"
#include "QzOsInstall.h"

namespace QzCommandRunner {

bool RunAndDescribe(const QzString& exePath, const std::vector<QzString>& args, uint32_t timeoutMillis,
                    QzString* resultTextRet) {
    QzOs::ProcessResult r;
    const uint32_t err =
        QzOs::RunProcessCapturingOutput(exePath.c_str(), args, timeoutMillis, kMaxOutputBytes, &r);
    if (err != 0) {
        *resultTextRet = QzCat("err_could_not_start_", static_cast<long long>(err));
    } else if (r.timedOut) {
        *resultTextRet = QzCat("err_timeout_after_ms=", static_cast<long long>(timeoutMillis));
    } else {
        *resultTextRet = QzCat("exit_code=", static_cast<long long>(r.exitCode));
    }
    QzString output = r.output;
    while (!output.IsEmpty() && (output.Last() == '\n' || output.Last() == '\r' || output.Last() == ' '))
        output.SetLength(output.Length() - 1);
    if (!output.IsEmpty()) {
        char* d = output.Data();
        for (int32_t i = 0; i < output.Length(); ++i)
            if (d[i] == '\n' || d[i] == '\r' || d[i] == '\t') d[i] = ' ';
        resultTextRet->Append(", output=");
        resultTextRet->Append(output);
        if (r.outputCut) resultTextRet->Append(" ...");
    }
    QzLog::WriteLine(QzCat("QzCommandRunner::RunAndDescribe ran ", exePath, ": ", *resultTextRet));
    return err == 0 && !r.timedOut;
}

}  // namespace QzCommandRunner
