#include <gtest/gtest.h>

#include "QzClientVersionManager.h"
#include "QzLog.h"
#include "TestScratch.h"

namespace {

QzString VersionFile(const std::string& body) {
    const QzString path = QzCat(QzTest::NewScratchSubdir("cv"), "clientversion.xml");
    EXPECT_TRUE(QzTest::WriteFile(
        path, "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n" + body + "</contents>\n"));
    return path;
}

bool EndOfLife(const std::string& revision, const std::string& eol) {
    QzClientVersionManager m(
        VersionFile("<revision num=\"" + revision + "\" />\n<endoflife version=\"" + eol + "\" />\n")
            .c_str());
    return m.IsEndOfLife();
}

std::string ErrorOf(const std::string& body) {
    try {
        QzClientVersionManager m(VersionFile(body).c_str());
        m.IsEndOfLife();
    } catch (const QzClientVersionError& e) {
        return e.what();
    }
    return "(no error)";
}

}  // namespace

TEST(QzClientVersion, EndOfLifeNamesTheLastVersionThatMustStop) {
    EXPECT_TRUE(EndOfLife("4", "9.1.0.833"));
    EXPECT_FALSE(EndOfLife("4", "9.1.0.832"));
    EXPECT_TRUE(EndOfLife("4", "9.1.1.0"));
    EXPECT_TRUE(EndOfLife("4", "10.0.0.0"));
    EXPECT_FALSE(EndOfLife("4", "9.1"));  // reads as 9.1.0.0
    EXPECT_FALSE(EndOfLife("4", "garbage"));
    EXPECT_TRUE(EndOfLife("5", "9.1.0.833x"));
    EXPECT_TRUE(EndOfLife("+4", " 9. 1.0.900"));
}

TEST(QzClientVersion, OlderFormatsNeverEndLifeButNegativeRevisionsCountAsLarge) {
    EXPECT_FALSE(EndOfLife("3", "99.0.0.0"));
    EXPECT_FALSE(EndOfLife("1", "99.0.0.0"));
    EXPECT_FALSE(EndOfLife("0", "99.0.0.0"));       // invalid: legacy revision 1
    EXPECT_FALSE(EndOfLife("banana", "99.0.0.0"));  // invalid: legacy revision 1
    EXPECT_TRUE(EndOfLife("-1", "99.0.0.0"));
}

TEST(QzClientVersion, RaisesItsErrorTexts) {
    EXPECT_EQ(ErrorOf("<revision num=\"4\" />\n"),
              "QzClientVersionManager::get_tag_xml - invalid format, <endoflife> tag not found");
    EXPECT_EQ(ErrorOf("<revision num=\"4\" />\n<endoflife when=\"now\" />\n"),
              "QzClientVersionManager::get_attr_xml - invalid format, version attribute not found");
    const QzString missing = QzCat(QzTest::NewScratchSubdir("cvmissing"), "clientversion.xml");
    try {
        QzClientVersionManager m(missing.c_str());
        FAIL() << "no error raised";
    } catch (const QzClientVersionError& e) {
        EXPECT_EQ(std::string(e.what()),
                  std::string("QzClientVersionManager::ReadFile - ") + missing.c_str() + " not found");
    }
}

TEST(QzClientVersion, InvalidRevisionIsLoggedAsAWarning) {
    QzTest::OpenScratchLog("cvlog");
    EXPECT_FALSE(EndOfLife("x7", "99.0.0.0"));
    const std::string log = QzTest::LogText();
    QzLog::Close();
    // The function is named in the Windows compiler's spelling on every build.
    EXPECT_NE(log.find("QzClientVersionManager.cpp:"), std::string::npos) << log;
    EXPECT_NE(log.find(" [int __cdecl QzClientVersionManager::detect_revision(void)] WARNING:\trevision from "
                       "clientversion.xml is invalid: x7, using legacy compatibility mode (rev1)\n"),
              std::string::npos)
        << log;
    EXPECT_NE(
        log.find(
            " [bool __cdecl QzClientVersionManager::IsEndOfLife(void)] WARNING:\tQzClientVersionManager::"
            "IsEndOfLife - invalid clientversion revision (rev 1)\n"),
        std::string::npos);
}
