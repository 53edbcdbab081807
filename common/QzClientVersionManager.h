// QzClientVersionManager: reads the updater's "clientversion.xml" and says
// whether this program's version has reached end of life. The only code in
// the program that throws: a missing or unreadable file and a file of a
// current format without its end-of-life entry raise QzClientVersionError.
#pragma once

#include <stdexcept>
#include <string>

#include "QzString.h"

class QzClientVersionError : public std::runtime_error {
public:
    explicit QzClientVersionError(const QzString& message) : std::runtime_error(message.c_str()) {}
};

class QzClientVersionManager {
public:
    // Reads <data dir>qzupdates\clientversion.xml.
    QzClientVersionManager();
    // Reads the given file (tests and tools).
    explicit QzClientVersionManager(const char* path);

    void ReadFile(const char* path);
    // True when this version must stop running. Files of formats before
    // revision 4 never end a client's life.
    bool IsEndOfLife();
    // The file's format revision (1 = legacy); sets the entry names.
    int detect_revision();

    // The first <tag ...> element of the content; raises when there is none.
    static void get_tag_xml(const QzString& content, const char* tag, QzString* result);
    // The value of an attribute of an element; raises when there is none.
    static void get_attr_xml(const QzString& element, const char* attr, QzString* result);
    // -1, 0 or 1 as version a is below, equal to or above version b, each read
    // as four dotted signed numbers with unreadable parts counting as 0.
    static int CompareVersions(const char* a, const char* b);

    const QzString& Content() const { return content_; }
    const char* VersionEntry() const { return "win32_version"; }
    const char* UrlEntry() const { return "win32_url"; }
    const char* MsiVersionEntry() const { return "win32_msi_version"; }
    const char* MsiUrlEntry() const { return "win32_msi_url"; }
    const char* ReleaseEntry() const { return releaseEntry_; }
    const char* UpdateEntry() const { return updateEntry_; }
    const char* HostPlaceholder() const { return hostPlaceholder_; }

private:
    QzString content_;
    bool revisionDetected_ = false;
    int revision_ = 1;
    const char* releaseEntry_ = "update";
    const char* updateEntry_ = "update";
    const char* hostPlaceholder_ = "%DEST_HOST%";
};
