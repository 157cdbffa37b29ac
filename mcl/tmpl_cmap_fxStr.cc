#include "mcl/tmpl_cmap_fxStr.h"

#include "mcl/mfc_cmapindex_p.h"

using TextAssoc = VELM_CMapAssoc<fxStr, char*, int>;
using AddressAssoc = VELM_CMapAssoc<fxStr, const char*, int>;

VELM_INDEXED_MAP(TextAssoc, char*)
VELM_INDEXED_MAP(AddressAssoc, const char*)

template class VELM_CMapTable<TextAssoc, char*>;
template class VELM_CMapTable<AddressAssoc, const char*>;
template class VELM_CMap<fxStr, char*, int, int>;
template class VELM_CMap<fxStr, const char*, int, int>;

unsigned HashKey(char* key)
{
    unsigned nHash = 0;
    for (; key != nullptr && *key != '\0'; ++key)
        nHash = nHash << 1 ^ static_cast<unsigned>(static_cast<signed char>(*key));
    return nHash;
}
