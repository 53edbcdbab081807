// Network adapter queries for the POSIX layer, from /sys/class/net.
#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "QzOs.h"

namespace QzOs {

namespace {

// "aa:bb:cc:dd:ee:ff" to six bytes; false for any other form.
bool ParseMac(const std::string& text, unsigned char mac[6]) {
    unsigned v[6];
    char tail = 0;
    if (std::sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%c", &v[0], &v[1], &v[2], &v[3], &v[4], &v[5],
                    &tail) != 6)
        return false;
    for (int i = 0; i < 6; ++i) mac[i] = static_cast<unsigned char>(v[i]);
    return true;
}

}  // namespace

bool GetFirstAdapterHardwareAddress(unsigned char mac[6]) {
    const std::string base = "/sys/class/net/";
    DIR* d = ::opendir(base.c_str());
    if (!d) return false;
    std::vector<std::string> names;
    while (const dirent* e = ::readdir(d)) {
        const std::string name = e->d_name;
        if (name != "." && name != ".." && name != "lo") names.push_back(name);
    }
    ::closedir(d);
    // The directory order is arbitrary; sorted names give the same adapter every time.
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        std::ifstream f(base + name + "/address");
        std::string text;
        if (!std::getline(f, text)) continue;
        unsigned char candidate[6];
        if (!ParseMac(text, candidate)) continue;
        if (std::all_of(candidate, candidate + 6, [](unsigned char b) { return b == 0; })) continue;
        std::copy(candidate, candidate + 6, mac);
        return true;
    }
    return false;
}

}  // namespace QzOs
