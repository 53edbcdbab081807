// Network adapter queries for the Windows layer, through the IP Helper API.
#include <iphlpapi.h>
#include <windows.h>
#include <winsock2.h>  // before windows.h, which would otherwise pull in winsock 1

#include <algorithm>
#include <vector>

#include "QzOs.h"

namespace QzOs {

bool GetFirstAdapterHardwareAddress(unsigned char mac[6]) {
    ULONG size = 16 * sizeof(IP_ADAPTER_INFO);
    std::vector<unsigned char> buf;
    DWORD err = ERROR_BUFFER_OVERFLOW;
    // The adapter list may grow between the size query and the call; try a few times.
    for (int attempt = 0; attempt < 4 && err == ERROR_BUFFER_OVERFLOW; ++attempt) {
        buf.resize(size);
        err = ::GetAdaptersInfo(reinterpret_cast<IP_ADAPTER_INFO*>(buf.data()), &size);
    }
    if (err != ERROR_SUCCESS) return false;
    for (const IP_ADAPTER_INFO* a = reinterpret_cast<const IP_ADAPTER_INFO*>(buf.data()); a; a = a->Next) {
        if (a->Type == MIB_IF_TYPE_LOOPBACK || a->AddressLength != 6) continue;
        if (std::all_of(a->Address, a->Address + 6, [](BYTE b) { return b == 0; })) continue;
        std::copy(a->Address, a->Address + 6, mac);
        return true;
    }
    return false;
}

}  // namespace QzOs
