/*
 * The public dispatchers and their tier tables, generated from the entry list.
 *
 * Each dispatched primitive has a table of six tier members, one per dispatch
 * index, each declared from the primitive's public prototype, and a dispatcher that reads the index, then jumps through the table
 * with every argument register and the return untouched:
 *
 *     movl  lum_jump_index(%rip), %eax
 *     leaq  <name>_arraddr(%rip), %r11
 *     jmp   *(%r11,%rax,8)
 *
 * Two loads and an indirect jump: no frame, no test, no branch.  %rax and
 * %r11 are scratch at a call boundary (and %al is set again by a variadic
 * caller only, which no primitive is).
 */
#include "lumcore_internal.h"

/* Each member has its primitive's public type, so a table entry whose member
 * has other parameters does not compile. */
#define LUMI_DECLARE_MEMBER(tier, name)                                            \
    extern "C" __attribute__((visibility("hidden"))) decltype(::name) tier##_##name;

#define LUMI_DISPATCHER_ASM(name)                                                  \
    __asm__(".text\n"                                                              \
            ".globl " #name "\n"                                                   \
            ".type " #name ", @function\n"                                         \
            ".p2align 4\n" #name ":\n"                                             \
            "\tmovl lum_jump_index(%rip), %eax\n"                                  \
            "\tleaq " #name "_arraddr(%rip), %r11\n"                               \
            "\tjmp *(%r11,%rax,8)\n"                                               \
            ".size " #name ", .-" #name "\n");

#define LUMI_ROW_BOUND(name)
#define LUMI_ROW_SELF(name)
#define LUMI_ROW_ABSENT(name)
#define LUMI_ROW_DISPATCHED(name, s0, s1, s2, s3, s4, s5)                          \
    LUMI_DECLARE_MEMBER(s0, name)                                                  \
    LUMI_DECLARE_MEMBER(s1, name)                                                  \
    LUMI_DECLARE_MEMBER(s2, name)                                                  \
    LUMI_DECLARE_MEMBER(s3, name)                                                  \
    LUMI_DECLARE_MEMBER(s4, name)                                                  \
    LUMI_DECLARE_MEMBER(s5, name)                                                  \
    extern "C" __attribute__((visibility("hidden"), used))                         \
    decltype(&::name) const name##_arraddr[LUMI_DISPATCH_INDEX_COUNT] = {          \
        &s0##_##name, &s1##_##name, &s2##_##name,                                  \
        &s3##_##name, &s4##_##name, &s5##_##name};                                 \
    LUMI_DISPATCHER_ASM(name)
#include "lumi_entries.def"
