#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "QzFile.h"
#include "QzFileRead.h"
#include "QzFileWrite.h"
#include "QzFileXml.h"
#include "QzOs.h"
#include "QzTime.h"
#include "TestScratch.h"

using QzTest::NewScratchSubdir;

namespace {
std::string ReadError(const char* fileName, bool passCount = true) {
    char* buf = nullptr;
    int64_t n = 0;
    QzString err;
    EXPECT_FALSE(QzFile::ReadEntireFileIntoNewBuf(fileName, &buf, passCount ? &n : nullptr, &err));
    EXPECT_EQ(buf, nullptr);
    return err.c_str();
}

std::vector<std::string> Strings(const std::vector<QzString>& v) {
    std::vector<std::string> out;
    for (const QzString& s : v) out.emplace_back(s.c_str());
    return out;
}
}  // namespace

TEST(QzFileRead, ReadsWholeFilesAndNamesEachFailure) {
    const QzString dir = NewScratchSubdir("read");
    const QzString file = QzCat(dir, "data.bin");
    ASSERT_TRUE(QzTest::WriteFile(file, std::string("ab\0cd", 5)));
    char* buf = nullptr;
    int64_t n = 0;
    QzString err;
    ASSERT_TRUE(QzFile::ReadEntireFileIntoNewBuf(file.c_str(), &buf, &n, &err));
    EXPECT_EQ(n, 5);
    EXPECT_EQ(std::string(buf, 5), std::string("ab\0cd", 5));
    EXPECT_EQ(buf[5], '\0');
    std::free(buf);

    EXPECT_EQ(ReadError(file.c_str(), false), "bad_argument: numBytesReturned was NULL");
    EXPECT_EQ(ReadError(nullptr), "bad_argument: fileName was NULL");
    EXPECT_EQ(ReadError(QzCat(dir, "missing.txt").c_str()), "file_does_not_exist");
    EXPECT_EQ(ReadError(QzCat(dir, "no\\such\\dir.txt").c_str()), "file_does_not_exist");
    // A directory cannot be opened as a file.
    EXPECT_EQ(ReadError(dir.c_str()), "error_win32_CreateF_failed_5_ERROR_ACCESS_DENIED");

    // Another process holding the file without sharing.
    QzOs::Handle h;
    ASSERT_EQ(QzOs::OpenFile(file.c_str(), QzOs::OpenMode::ReadExclusive, &h), QzOs::ErrSuccess);
    EXPECT_EQ(ReadError(file.c_str()), "Another_Process_Has_File_Open_");
    QzOs::CloseFile(h);

    // Over one gigabyte is refused before anything is allocated.
    const QzString big = QzCat(dir, "big.dat");
    ASSERT_TRUE(QzTest::WriteFile(big, ""));
    std::filesystem::resize_file(QzTest::HostPath(big), QzFile::kMaxWholeFileBytes + 1);
    EXPECT_EQ(ReadError(big.c_str()), "error_file_is_larger_than_one_gigabyte");
    std::filesystem::resize_file(QzTest::HostPath(big), 0);
}

TEST(QzFileXml, CutsElementsByTagInFileOrder) {
    const char* xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n"
        "<qzvolumes count=\"2\">\n"
        "<qzvolume qzVolumeGuid=\"v001a\" mountPointPath=\"C:\\\" />\n"
        "<qzvolume\tqzVolumeGuid=\"v002b\" mountPointPath=\"D:\\\"/>\n"
        "</qzvolumes>\n"
        "<do_backup name=\"x\">\n  <qzdirfilter dir=\"C:\\a\" whichfiles=\"none\" />\n</do_backup>\n"
        "<qzvolume qzVolumeGuid=\"v003c\">text</qzvolume>\n"
        "</contents>\n";
    const int32_t len = static_cast<int32_t>(std::strlen(xml));
    std::vector<QzString> s;
    ASSERT_TRUE(QzFile::GetAllXmlSnippetsWithTagNameInXmlText(xml, len, "qzvolume", &s));
    EXPECT_EQ(Strings(s),
              (std::vector<std::string>{"<qzvolume qzVolumeGuid=\"v001a\" mountPointPath=\"C:\\\" />",
                                        "<qzvolume\tqzVolumeGuid=\"v002b\" mountPointPath=\"D:\\\"/>",
                                        "<qzvolume qzVolumeGuid=\"v003c\">text</qzvolume>"}));
    // An element with children runs to its end tag, not to a child's "/>".
    ASSERT_TRUE(QzFile::GetAllXmlSnippetsWithTagNameInXmlText(xml, len, "do_backup", &s));
    ASSERT_EQ(s.size(), 1u);
    EXPECT_TRUE(s[0].EndsWith("</do_backup>"));
    EXPECT_TRUE(s[0].Contains("whichfiles=\"none\""));
    EXPECT_FALSE(QzFile::GetAllXmlSnippetsWithTagNameInXmlText(xml, len, "nothere", &s));
    EXPECT_TRUE(s.empty());

    // A malformed element costs itself alone: one closed by ">" without its end tag, one
    // whose start tag never closes, and the truncated last one are left out.
    const char* bad = "<a x=\"1\">\n<a y=\"2\" />\n<a z=\"3\"\n<a w=\"4\"/><a v=\"5";
    ASSERT_TRUE(
        QzFile::GetAllXmlSnippetsWithTagNameInXmlText(bad, static_cast<int32_t>(std::strlen(bad)), "a", &s));
    EXPECT_EQ(Strings(s), (std::vector<std::string>{"<a y=\"2\" />", "<a w=\"4\"/>"}));
}

TEST(QzFileXml, ReadsTheFirstWholeAttributeWithoutDecoding) {
    QzString v;
    const char* snippet =
        "<vol associated_hguid=\"AAA\" hguid=\"BBB\" name=\"a &amp; b\" empty=\"\" bad=\"open />";
    ASSERT_TRUE(QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "hguid", &v));
    EXPECT_STREQ(v.c_str(), "BBB");  // not the tail of associated_hguid
    ASSERT_TRUE(QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "associated_hguid", &v));
    EXPECT_STREQ(v.c_str(), "AAA");
    ASSERT_TRUE(QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "name", &v));
    EXPECT_STREQ(v.c_str(), "a &amp; b");
    ASSERT_TRUE(QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "empty", &v));
    EXPECT_STREQ(v.c_str(), "");
    EXPECT_FALSE(QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "bad", &v));  // no closing quote
    EXPECT_FALSE(QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "missing", &v));
    EXPECT_FALSE(QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "", &v));
    // "mountPointPath" must not be read from "mountPointPathHex".
    EXPECT_FALSE(
        QzFile::GetUniqueStrAttrFromXmlSnippet("<v mountPointPathHex=\"433a5c\" />", "mountPointPath", &v));
}

TEST(QzFileXml, SplicerChangesExactlyWhatTheReaderReads) {
    QzString s("<qzvolume associated_hguid=\"a\" hguid=\"b\" x=\"&amp;\" />");
    ASSERT_TRUE(QzFile::SetUniqueStrAttrInXmlSnippet(&s, "hguid", QzString("C & <D>")));
    EXPECT_STREQ(s.c_str(), "<qzvolume associated_hguid=\"a\" hguid=\"C &amp; &lt;D&gt;\" x=\"&amp;\" />");
    EXPECT_FALSE(QzFile::SetUniqueStrAttrInXmlSnippet(&s, "guid", QzString("z")));
    // Limited to a range: the second element's value changes, the first stays.
    QzString two("<a v=\"1\" />\n<a v=\"2\" />\n");
    ASSERT_TRUE(QzFile::SetUniqueStrAttrInXmlText(&two, 12, -1, "v", QzString("22")));
    EXPECT_STREQ(two.c_str(), "<a v=\"1\" />\n<a v=\"22\" />\n");
    QzString out;
    int32_t at = -1;
    EXPECT_TRUE(QzFile::RemoveXmlComments(QzString("a<!-- x -->b"), &out, &at));
    EXPECT_STREQ(out.c_str(), "ab");
    EXPECT_FALSE(QzFile::RemoveXmlComments(QzString("a<!-- x"), &out, &at));
    EXPECT_EQ(at, 1);
}

// Pauses are counted instead of waited; a test may act at a given pause.
struct CountedPauses {
    static inline int pauses = 0;
    static inline void (*atPause)(int) = nullptr;
    CountedPauses() {
        pauses = 0;
        atPause = nullptr;
        QzTime::SetSleepForTesting([](uint32_t) {
            ++pauses;
            if (atPause) atPause(pauses);
        });
    }
    ~CountedPauses() { QzTime::SetSleepForTesting(nullptr); }
};

TEST(QzFileWrite, WholeFileReplacesInOneStepOrLeavesTheTargetAsItWas) {
    CountedPauses counted;
    const QzString dir = NewScratchSubdir("write");
    const QzString target = QzCat(dir, "list.dat");
    ASSERT_TRUE(QzTest::WriteFile(target, "old"));
    QzFile::ReplacePolicy keepTime;
    keepTime.lastWriteTime = 130000000000000000LL;  // 2012-12-15, as a copy keeps its original's
    ASSERT_TRUE(QzFile::WriteFileAtomically(target, QzString("new"), keepTime));
    EXPECT_EQ(QzTest::ReadFile(target), "new");
    EXPECT_EQ(QzFile::GetFileLastModMillis(target.c_str()),
              QzTime::FileTimeToGmtMillis(130000000000000000LL));
    EXPECT_FALSE(QzFile::PathExists(QzCat(target, ".tmp").c_str()));

    // The temporary name is taken by a folder: the write fails, nothing moves.
    ASSERT_TRUE(QzFile::CreateDirectoryRecursive(QzCat(target, ".qztmp").c_str()));
    QzFile::ReplacePolicy policy;
    policy.tmpSuffix = ".qztmp";
    policy.writeAttempts = 3;
    QzFile::ReplaceResult r;
    EXPECT_FALSE(QzFile::WriteFileAtomically(target, QzString("newer"), policy, &r));
    EXPECT_FALSE(r.written);
    EXPECT_EQ(r.moveAttempts, 0);
    EXPECT_EQ(r.writeAttempts, 3);
    EXPECT_EQ(CountedPauses::pauses, 2);
    EXPECT_EQ(QzTest::ReadFile(target), "new");

    // A source that does not exist: ten moves, nine pauses between them.
    CountedPauses::pauses = 0;
    EXPECT_FALSE(QzFile::AtomicMoveFileWithRetry(QzCat(dir, "none").c_str(), target.c_str()));
    EXPECT_EQ(CountedPauses::pauses, 9);
    EXPECT_EQ(QzTest::ReadFile(target), "new");
}

TEST(QzFileWrite, FutureFileAppearsWholeOrNotAtAll) {
    const QzString final = QzCat(NewScratchSubdir("future"), "topdirs.xml");
    ASSERT_TRUE(QzTest::WriteFile(final, "previous"));
    QzFile::FutureFile f(final);
    ASSERT_TRUE(f.Create(QzString("header\n")));
    ASSERT_TRUE(f.Append(QzString("line 1\n")) && f.Append(QzString("line 2\n")) && f.Flush());
    EXPECT_EQ(QzTest::ReadFile(final), "previous");
    ASSERT_TRUE(f.Finish());
    EXPECT_EQ(QzTest::ReadFile(final), "header\nline 1\nline 2\n");
    EXPECT_FALSE(f.FutureExists());
    ASSERT_TRUE(f.Create(QzString("other\n")));
    ASSERT_TRUE(f.Abandon());
    EXPECT_FALSE(f.FutureExists());
    EXPECT_EQ(QzTest::ReadFile(final), "header\nline 1\nline 2\n");
}

TEST(QzFileRead, PatientReadTellsMissingHeldAndRead) {
    CountedPauses counted;
    const QzString path = QzCat(NewScratchSubdir("patient"), "qzvolumes.xml");
    QzString text, err;
    EXPECT_EQ(QzFile::ReadFilePatiently(path.c_str(), &text), QzFile::ReadStatus::Missing);
    EXPECT_EQ(QzFile::ReadFilePatiently(QzCat(path, "\\sub\\x").c_str(), &text), QzFile::ReadStatus::Missing);
    ASSERT_TRUE(QzTest::WriteFile(path, "<contents />"));
    static QzOs::Handle held;
    ASSERT_EQ(QzOs::OpenFile(path.c_str(), QzOs::OpenMode::ReadExclusive, &held), 0u);
    EXPECT_EQ(QzFile::ReadFilePatiently(path.c_str(), &text, {}, &err), QzFile::ReadStatus::Held);
    EXPECT_STREQ(err.c_str(), "Another_Process_Has_File_Open_");
    EXPECT_EQ(CountedPauses::pauses, 4);
    // Released while the reader waits: a later try reads it.
    CountedPauses::pauses = 0;
    CountedPauses::atPause = [](int n) {
        if (n == 2) QzOs::CloseFile(held);
    };
    EXPECT_EQ(QzFile::ReadFilePatiently(path.c_str(), &text), QzFile::ReadStatus::Ok);
    EXPECT_STREQ(text.c_str(), "<contents />");
}
