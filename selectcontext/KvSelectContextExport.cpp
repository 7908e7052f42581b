#include "selectcontext/KvSelectContextExport.h"

#if KV_SHORTCUTS
void kvdetail::builtWithShortcuts() noexcept {}
#else
void kvdetail::builtWithoutShortcuts() noexcept {}
#endif
