# Builds a source module once per processor tier.
#
#   lumi_tiered_module(<name> <sources...>)
#
# adds one OBJECT library per tier, <name>_m7 ... <name>_e9, each compiled with
# the tier's instruction-set flags and LUMI_TIER set to its prefix.  Their
# objects are collected in the global property LUMI_TIER_OBJECT_LIBS, from
# which the top level links the shared library and the test library.  Nothing
# else in the build knows about tiers.

set(LUMI_TIERS m7 n8 u8 y8 e9)
set(LUMI_TIER_FLAGS_m7 -msse3)
set(LUMI_TIER_FLAGS_n8 -mssse3)
set(LUMI_TIER_FLAGS_u8 -mssse3)
set(LUMI_TIER_FLAGS_y8 -msse4.1)
set(LUMI_TIER_FLAGS_e9 -mavx)
set(LUMI_TIER_LEVEL_m7 1)
set(LUMI_TIER_LEVEL_n8 2)
set(LUMI_TIER_LEVEL_u8 2)
set(LUMI_TIER_LEVEL_y8 3)
set(LUMI_TIER_LEVEL_e9 4)

function(lumi_tiered_module name)
  foreach(tier IN LISTS LUMI_TIERS)
    set(lib ${name}_${tier})
    add_library(${lib} OBJECT ${ARGN})
    lumi_library_target(${lib})
    target_compile_options(${lib} PRIVATE ${LUMI_TIER_FLAGS_${tier}} -mno-fma)
    target_compile_definitions(${lib} PRIVATE
      LUMI_TIER=${tier} LUMI_TIER_LEVEL=${LUMI_TIER_LEVEL_${tier}}
      $<$<STREQUAL:${tier},u8>:LUMI_TIER_U8=1>)
    target_include_directories(${lib} PRIVATE ${PROJECT_SOURCE_DIR}/tiers)
    set_property(GLOBAL APPEND PROPERTY LUMI_TIER_OBJECT_LIBS ${lib})
  endforeach()
endfunction()
