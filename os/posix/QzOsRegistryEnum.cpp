// The POSIX build has no registry to enumerate.
#include "QzOs.h"

namespace QzOs {

uint32_t ReadRegistrySubkeyStrings(const char*, RegistryView, std::vector<RegistryKeyStrings>* keysRet) {
    keysRet->clear();
    return ErrNotSupported;
}

}  // namespace QzOs
