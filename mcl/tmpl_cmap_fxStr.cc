#include "mcl/tmpl_cmap_fxStr.h"

template class VELM_CMapTable<VELM_CMapAssoc<fxStr, char*, int>, char*>;
template class VELM_CMapTable<VELM_CMapAssoc<fxStr, const char*, int>, const char*>;
template class VELM_CMap<fxStr, char*, int, int>;
template class VELM_CMap<fxStr, const char*, int, int>;

unsigned HashKey(char* key)
{
    unsigned nHash = 0;
    for (; key != nullptr && *key != '\0'; ++key)
        nHash = nHash << 1 ^ static_cast<unsigned>(static_cast<signed char>(*key));
    return nHash;
}
