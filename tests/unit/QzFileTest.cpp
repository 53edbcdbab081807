#include "QzFile.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "QzOs.h"
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

TEST(QzFileRead, SplitsLinesAtNewlinesDroppingCarriageReturns) {
    std::vector<QzString> lines;
    const char text[] = "one\r\ntwo\n\nthree\rstill three\nlast";
    QzFile::SplitIntoLines(text, sizeof text - 1, &lines);
    EXPECT_EQ(Strings(lines), (std::vector<std::string>{"one", "two", "", "three\rstill three", "last"}));
    QzFile::SplitIntoLines("", 0, &lines);
    EXPECT_TRUE(lines.empty());
    QzFile::SplitIntoLines("x\n", 2, &lines);
    EXPECT_EQ(Strings(lines), (std::vector<std::string>{"x"}));

    const QzString file = QzCat(NewScratchSubdir("lines"), "list.txt");
    ASSERT_TRUE(QzTest::WriteFile(file, "a\r\nb\n"));
    QzString err;
    ASSERT_TRUE(QzFile::ReadFileIntoLines(file.c_str(), &lines, &err));
    EXPECT_EQ(Strings(lines), (std::vector<std::string>{"a", "b"}));
    EXPECT_FALSE(QzFile::ReadFileIntoLines(QzCat(file, ".nope").c_str(), &lines, &err));
    EXPECT_STREQ(err.c_str(), "file_does_not_exist");
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
    EXPECT_EQ(Strings(s), (std::vector<std::string>{"<qzvolume qzVolumeGuid=\"v001a\" mountPointPath=\"C:\\\" />",
                                                    "<qzvolume\tqzVolumeGuid=\"v002b\" mountPointPath=\"D:\\\"/>",
                                                    "<qzvolume qzVolumeGuid=\"v003c\">text</qzvolume>"}));
    // An element with children runs to its end tag, not to a child's "/>".
    ASSERT_TRUE(QzFile::GetAllXmlSnippetsWithTagNameInXmlText(xml, len, "do_backup", &s));
    ASSERT_EQ(s.size(), 1u);
    EXPECT_TRUE(s[0].EndsWith("</do_backup>"));
    EXPECT_TRUE(s[0].Contains("whichfiles=\"none\""));
    EXPECT_FALSE(QzFile::GetAllXmlSnippetsWithTagNameInXmlText(xml, len, "nothere", &s));
    EXPECT_TRUE(s.empty());

    // A truncated file: the last element runs to the end of the text.
    const char* cut = "<a x=\"1\" /><a y=\"2";
    ASSERT_TRUE(QzFile::GetAllXmlSnippetsWithTagNameInXmlText(cut, static_cast<int32_t>(std::strlen(cut)), "a", &s));
    EXPECT_EQ(Strings(s), (std::vector<std::string>{"<a x=\"1\" />", "<a y=\"2"}));
}

TEST(QzFileXml, ReadsTheFirstWholeAttributeWithoutDecoding) {
    QzString v;
    const char* snippet = "<vol associated_hguid=\"AAA\" hguid=\"BBB\" name=\"a &amp; b\" empty=\"\" bad=\"open />";
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
    EXPECT_FALSE(QzFile::GetUniqueStrAttrFromXmlSnippet("<v mountPointPathHex=\"433a5c\" />", "mountPointPath", &v));
}

TEST(QzFileMove, AtomicMoveReplacesAndRetriesBeforeGivingUp) {
    const QzString dir = NewScratchSubdir("move");
    const QzString tmp = QzCat(dir, "list.dat.tmp");
    const QzString target = QzCat(dir, "list.dat");
    ASSERT_TRUE(QzTest::WriteFile(target, "old"));
    ASSERT_TRUE(QzFile::WriteEntireFile(tmp.c_str(), "new", 3));
    ASSERT_TRUE(QzFile::AtomicMoveFileWithRetry(tmp.c_str(), target.c_str()));
    EXPECT_EQ(QzTest::ReadFile(target), "new");
    EXPECT_FALSE(QzFile::PathExists(tmp.c_str()));

    // A source that does not exist fails after ten attempts 100 ms apart.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(QzFile::AtomicMoveFileWithRetry(tmp.c_str(), target.c_str()));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
    EXPECT_EQ(QzTest::ReadFile(target), "new");
}

TEST(QzFileDirs, CreatesMissingParentsAndReportsExistence) {
    const QzString dir = NewScratchSubdir("mk");
    const QzString deep = QzCat(dir, "a\\b\\c\\");
    EXPECT_TRUE(QzFile::CreateDirectoryRecursive(deep.c_str()));
    EXPECT_TRUE(QzFile::DirExists(deep.c_str()));
    EXPECT_FALSE(QzFile::FileExists(deep.c_str()));
    const QzString f = QzCat(deep, "f.txt");
    ASSERT_TRUE(QzFile::WriteEntireFile(f.c_str(), "12345", 5));
    EXPECT_TRUE(QzFile::FileExists(f.c_str()));
    EXPECT_EQ(QzFile::GetFileSizeInBytes(f.c_str()), 5);
    EXPECT_GT(QzFile::GetFileLastModMillis(f.c_str()), 1600000000000LL);
    EXPECT_EQ(QzFile::GetFileSizeInBytes(QzCat(f, "x").c_str()), -1);
    EXPECT_TRUE(QzFile::DeleteFileIfExists(f.c_str()));
    EXPECT_TRUE(QzFile::DeleteFileIfExists(f.c_str()));
    // A file in the way makes the creation fail.
    const QzString blocker = QzCat(dir, "blocker");
    ASSERT_TRUE(QzFile::WriteEntireFile(blocker.c_str(), "x", 1));
    EXPECT_FALSE(QzFile::CreateDirectoryRecursive(QzCat(blocker, "\\sub\\dir").c_str()));
}
