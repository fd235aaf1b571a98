/*
 * Declarations of the members one tier offers to its own other members and
 * to the dispatchers.  A family calls only members of its own tier (LUMI_T)
 * and the core services.
 *
 * Every member is declared from one type: a dispatched primitive's from its
 * public prototype in lumi.h (through the entry list), an internal member's
 * from tier_member_types.h.  A definition whose parameters differ from that
 * type is a conflicting declaration of a C function and does not compile.
 */
#ifndef LUMI_TIER_MEMBERS_H
#define LUMI_TIER_MEMBERS_H

#include "tier_member_types.h"

#define LUMI_ROW_BOUND(name)
#define LUMI_ROW_SELF(name)
#define LUMI_ROW_ABSENT(name)
#define LUMI_ROW_DISPATCHED(name, s0, s1, s2, s3, s4, s5) LUMI_MEMBER decltype(::name) LUMI_T(name);
#include "lumi_entries.def"
#undef LUMI_ROW_BOUND
#undef LUMI_ROW_SELF
#undef LUMI_ROW_ABSENT
#undef LUMI_ROW_DISPATCHED

#define LUMI_DECLARE_INTERNAL_MEMBER_(c, name, type) LUMI_MEMBER lumi_member_type::name LUMI_T(name);
LUMI_INTERNAL_MEMBERS(LUMI_DECLARE_INTERNAL_MEMBER_, _)
#undef LUMI_DECLARE_INTERNAL_MEMBER_

/* The Lanczos kernel table at spacing 0.01 (image/resize), 302 entries; the
 * remap kernels read it as tblL3. */
LUMI_MEMBER const Lum32f LUMI_T(tblLanczos3)[302];

#endif
