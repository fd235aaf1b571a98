/*
 * The dispatch index and the low-power flag.  The storage is hidden so that
 * the dispatchers and the selection code reach it directly; the exported
 * names are aliases of the same words for hosts.
 */
#include "lumcore_internal.h"

extern "C" {
int32_t lum_jump_index = 0;
int32_t lum_jump_index_lp = 0;

extern int32_t lumJumpIndexForMergedLibs
    __attribute__((alias("lum_jump_index"), visibility("default")));
extern int32_t lumJumpIndexForMergedLibsLP
    __attribute__((alias("lum_jump_index_lp"), visibility("default")));
}
