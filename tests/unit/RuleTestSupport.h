// Helpers for the exclusion-rule tests: a log of their own to read back, a
// fresh data directory, rule text built from fields, and lines of a file.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "QzLog.h"
#include "QzRuleFiles.h"
#include "QzTime.h"
#include "TestScratch.h"

namespace QzRuleTest {

inline std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start < text.size()) {
        size_t nl = text.find('\n', start);
        if (nl == std::string::npos) nl = text.size();
        out.push_back(text.substr(start, nl - start));
        start = nl + 1;
    }
    return out;
}

// Opens the log in a new scratch folder for the life of the object.
class LogCapture {
public:
    LogCapture() { QzTest::OpenScratchLog("rulelog"); }
    ~LogCapture() { QzLog::Close(); }

    // The messages (text after " - ") of every line written so far.
    std::vector<std::string> Messages() const {
        std::vector<std::string> out;
        for (const std::string& line : Lines(QzTest::LogText())) {
            const size_t sep = line.find(" - ");
            out.push_back(sep == std::string::npos ? line : line.substr(sep + 3));
        }
        return out;
    }
    int Count(const std::string& needle) const {
        int n = 0;
        for (const std::string& m : Messages()) n += m.find(needle) != std::string::npos;
        return n;
    }
    bool Has(const std::string& needle) const { return Count(needle) > 0; }
    std::vector<std::string> Matching(const std::string& needle) const {
        std::vector<std::string> out;
        for (const std::string& m : Messages())
            if (m.find(needle) != std::string::npos) out.push_back(m);
        return out;
    }
};

// Replaces the pauses between attempts for the life of the object and
// counts them.
class NoSleep {
public:
    NoSleep() {
        pauses_ = 0;
        QzTime::SetSleepForTesting([](uint32_t) { ++pauses_; });
    }
    ~NoSleep() { QzTime::SetSleepForTesting(nullptr); }
    static int Pauses() { return pauses_; }

private:
    static inline int pauses_ = 0;
};

// One rule element in the layout of the default files.
inline std::string Rule(const std::string& prefix, const std::string& c1 = "*", const std::string& c2 = "*",
                        const std::string& dnc = "*", const std::string& ends = "*",
                        const std::string& ext = "*", const std::string& plat = "win",
                        const std::string& osVers = "*") {
    return "<excludefname_rule plat=\"" + plat + "\" osVers=\"" + osVers +
           "\"  ruleIsOptional=\"t\" skipFirstCharThenStartsWith=\"" + prefix + "\" contains_1=\"" + c1 +
           "\" contains_2=\"" + c2 + "\" doesNotContain=\"" + dnc + "\" endsWith=\"" + ends +
           "\" hasFileExtension=\"" + ext + "\" />\n";
}

inline std::string RuleFile(const std::string& rules) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" ?> \n\n<qzexclusions>\n" + rules + "</qzexclusions>\n";
}

inline int CountOf(const std::string& text, const std::string& needle) {
    int n = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++n;
    return n;
}

inline std::string Str(const QzString& s) {
    return std::string(s.c_str(), static_cast<size_t>(s.Length()));
}

}  // namespace QzRuleTest
